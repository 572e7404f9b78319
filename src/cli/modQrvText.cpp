#include "cli/modQrvText.h"

#include "platform/modPlatformKind.h"

#include <algorithm>
#include <cstdio>

namespace {

std::string Hex(const char* format, unsigned value) {
    char buf[12];
    std::snprintf(buf, sizeof buf, format, value);
    return buf;
}

} // namespace

size_t Utf8SequenceLength(const std::string& bytes, size_t at) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned lead = byte(at);
    if (lead < 0x80) return 1;
    size_t length = 0;
    unsigned low = 0x80, high = 0xBF; // the range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;  // no overlong forms
        if (lead == 0xED) high = 0x9F; // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F; // nothing above U+10FFFF
    } else {
        return 0;
    }
    if (at + length > bytes.size()) return 0;
    if (byte(at + 1) < low || byte(at + 1) > high) return 0;
    for (size_t i = 2; i < length; ++i)
        if (byte(at + i) < 0x80 || byte(at + i) > 0xBF) return 0;
    return length;
}

std::string LineText(const std::string& bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (size_t at = 0; at < bytes.size();) {
        const auto c = static_cast<unsigned char>(bytes[at]);
        const size_t length = Utf8SequenceLength(bytes, at);
        if (c == '\\' && !kWindowsBuild) {
            text += "\\\\";
        } else if (c == '\n') {
            text += "\\n";
        } else if (c == '\t') {
            text += "\\t";
        } else if (length == 0 || c < 0x20 || c == 0x7F) {
            text += Hex("\\x%02x", c);
        } else {
            text.append(bytes, at, length);
            at += length;
            continue;
        }
        ++at;
    }
    return text;
}

std::string JsonString(const std::string& bytes) {
    std::string json = "\"";
    for (size_t at = 0; at < bytes.size();) {
        const auto c = static_cast<unsigned char>(bytes[at]);
        const size_t length = Utf8SequenceLength(bytes, at);
        if (c == '"' || c == '\\') {
            json += '\\';
            json += static_cast<char>(c);
        } else if (c == '\n') {
            json += "\\n";
        } else if (c == '\t') {
            json += "\\t";
        } else if (c == '\r') {
            json += "\\r";
        } else if (c < 0x20) {
            json += Hex("\\u%04x", c);
        } else if (length == 0) {
            json += Hex("\\u%04x", 0xDC00 + c);
        } else {
            json.append(bytes, at, length);
            at += length;
            continue;
        }
        ++at;
    }
    return json + "\"";
}

bool IsRunId(const std::string& text) {
    return !text.empty() && text.size() <= 18 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}
