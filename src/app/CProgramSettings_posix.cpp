#include "app/CProgramSettings.h"

#include "platform/CFile.h"
#include "platform/modPlatformPaths.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <vector>

namespace {

// Escapes what an INI line cannot hold: "\" itself, CR, LF, NUL, and in names "=".
std::string Escape(const std::string& text, bool isName) {
    std::string out;
    for (char c : text) {
        switch (c) {
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\0':
            out += "\\0";
            break;
        case '=':
            if (isName) {
                out += "\\=";
                break;
            }
            [[fallthrough]];
        default:
            out += c;
        }
    }
    return out;
}

std::string Unescape(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char next = text[++i];
        out += next == 'n' ? '\n' : next == 'r' ? '\r' : next == '0' ? '\0' : next;
    }
    return out;
}

// The position of the first "=" that is not escaped, or npos.
size_t NameEnd(const std::string& line) {
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\\')
            ++i;
        else if (line[i] == '=')
            return i;
    }
    return std::string::npos;
}

std::vector<std::string> ReadLines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path, std::ios::binary);
    // A file edited on another system may end its lines with CR LF.
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

bool IsSection(const std::string& line) {
    return line.size() >= 2 && line.front() == '[' && line.back() == ']';
}

} // namespace

std::string CProgramSettings::FilePath() {
    return ConfigHome() + "/Korvex/QRV.conf";
}

std::string CProgramSettings::ReadEntry(const std::string& entry,
                                        const std::string& defaultValue) const {
    return ReadEntryAt(KeyPath(), entry, defaultValue);
}

bool CProgramSettings::ReadStoredAt(uint32_t /*root: both roots are the one file*/,
                                    const std::string& keyPath, const std::string& entry,
                                    std::string& value) {
    // No value of the file holds this byte alone.
    const std::string missing(1, '\x01');
    value = ReadEntryAt(keyPath, entry, missing);
    if (value != missing) return true;
    value.clear();
    return false;
}

std::string CProgramSettings::ReadEntryAt(const std::string& keyPath, const std::string& entry,
                                          const std::string& defaultValue) {
    const std::string header = "[" + keyPath + "]";
    bool inSection = false;
    for (const std::string& line : ReadLines(FilePath())) {
        if (IsSection(line)) {
            inSection = line == header;
            continue;
        }
        const size_t eq = NameEnd(line);
        if (!inSection || eq == std::string::npos || Unescape(line.substr(0, eq)) != entry)
            continue;
        std::string value = Unescape(line.substr(eq + 1));
        // A value stored with its terminating zero reads the same as one stored without.
        if (!value.empty() && value.back() == '\0') value.pop_back();
        return value.empty() ? defaultValue : value;
    }
    return defaultValue;
}

void CProgramSettings::WriteEntry(const std::string& entry, const std::string& value) const {
    const std::string path = FilePath();
    const std::string header = "[" + KeyPath() + "]";
    const std::string newLine = Escape(entry, true) + "=" + Escape(value, false);
    std::vector<std::string> lines = ReadLines(path);

    bool inSection = false, written = false;
    size_t sectionEnd = std::string::npos;
    for (size_t i = 0; i < lines.size() && !written; ++i) {
        if (IsSection(lines[i])) {
            if (inSection) break;
            inSection = lines[i] == header;
            if (inSection) sectionEnd = i + 1;
            continue;
        }
        if (!inSection) continue;
        sectionEnd = i + 1;
        const size_t eq = NameEnd(lines[i]);
        if (eq != std::string::npos && Unescape(lines[i].substr(0, eq)) == entry) {
            lines[i] = newLine;
            written = true;
        }
    }
    if (!written && sectionEnd != std::string::npos) {
        lines.insert(lines.begin() + static_cast<long>(sectionEnd), newLine);
    } else if (!written) {
        lines.push_back(header);
        lines.push_back(newLine);
    }

    // Written whole under a temporary name, then renamed: a crash never leaves half a file.
    // Every failure is silent, as a registry write without rights would be.
    const std::string folder = path.substr(0, path.rfind('/'));
    if (!MakePrivateFolders(folder)) return;
    const std::string temp = path + ".new";
    CFile file;
    if (!file.Open(temp, CFile::Mode::kReplace)) return;
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    const bool ok = file.WriteAll(text);
    file.Close();
    if (!ok || RenameReplacing(temp, path) != 0) RemoveFile(temp);
}
