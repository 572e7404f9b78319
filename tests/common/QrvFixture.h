#pragma once

// A backup folder for the companion's end-to-end tests: one source whose names hold an
// apostrophe, a backslash, a new line and bytes that are not UTF-8, backed up by the real
// program, and readers for what the catalogue says about it.

#include "BackupFixture.h"
#include "TestProgram.h"

#include <map>
#include <string>
#include <vector>

class QrvFixture : public BackupFixture {
public:
    // Makes the source and backs it up once (run 1).
    QrvFixture();

    // Backs up every source once more; the run must succeed.
    void Backup() const;
    // The date of run `bid` as the catalogue holds it.
    std::string Date(const std::string& bid) const;
    // The source's files (relative path -> content) as they were backed up.
    std::map<std::string, std::string> Contents() const;
    // What a restore of the whole source below `root` must produce: the same tree, except
    // that a "\" in a name comes back as "'".
    std::map<std::string, std::string> ExpectedBelow(const std::string& root) const;
    // Every regular file below `root` with its content.
    static std::map<std::string, std::string> Tree(const std::string& root);

    std::string src;
};
