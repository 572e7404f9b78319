#include "OddNamesBackup.h"

#include <stdexcept>

OddNamesBackup::OddNamesBackup() : src(env.Path("src")) {
    CreateTree(src, Dir({
                        {"a.txt", File("alpha")},
                        {"big.bin", File(PatternContent(300000))},
                        {"sub", Dir({{"Bob's file.txt", File("apostrophe")},
                                     {"deeper", Dir({{"d.txt", File(PatternContent(8192))}})}})},
                        {"bad\xff\xfe.bin", File("invalid utf-8")},
                        {"new\nline.txt", File("newline")},
                        {"back\\slash.txt", File("backslash")},
                    }));
    for (const std::string& path : WalkOrder(src))
        contents[path.substr(src.size())] = ReadFile(path);
    AddSource(src);
    Backup();
}

void OddNamesBackup::Backup() const {
    const ProgramRun run = RunStashwell({"backup"});
    if (run.exitCode != 0) throw std::runtime_error("backup failed: " + run.err);
}

std::string OddNamesBackup::Date(const std::string& bid) const {
    const auto rows = Rows("SELECT datebk FROM Backups WHERE bid = " + bid);
    return rows.empty() ? std::string() : rows[0];
}

std::map<std::string, std::string> OddNamesBackup::ExpectedBelow(const std::string& root) const {
    std::map<std::string, std::string> expected;
    for (const auto& [relative, content] : contents)
        expected[root + relative] = content;
    return expected;
}

std::map<std::string, std::string> OddNamesBackup::Tree(const std::string& root) {
    std::map<std::string, std::string> tree;
    for (const std::string& path : WalkOrder(root))
        tree[path] = ReadFile(path);
    return tree;
}
