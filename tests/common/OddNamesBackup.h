#pragma once

// A backup folder for the restore's and the companion's end-to-end tests: one source whose
// names hold an apostrophe, a backslash, a new line and bytes that are not UTF-8, backed up by
// the real program, and what a restore of it must give back.

#include "BackupFixture.h"
#include "TestProgram.h"

#include <map>
#include <string>
#include <vector>

class OddNamesBackup : public BackupFixture {
public:
    // Makes the source and backs it up once (run 1).
    OddNamesBackup();

    // Backs up every source once more; the run must succeed.
    void Backup() const;
    // The date of run `bid` as the catalogue holds it.
    std::string Date(const std::string& bid) const;
    // What a restore of the whole source below `root` must produce: the same tree, byte for
    // byte, every name as it was.
    std::map<std::string, std::string> ExpectedBelow(const std::string& root) const;
    // Every regular file below `root` with its content.
    static std::map<std::string, std::string> Tree(const std::string& root);

    std::string src;
    // The source's files (relative path -> content) as they were backed up in run 1.
    std::map<std::string, std::string> contents;
};
