#pragma once

// A backup folder for end-to-end tests: the backup path set through the settings file, a new
// catalogue, sources and options written into it, and readers for what a run leaves behind.

#include "TestSupport.h"

#include <string>
#include <vector>

class BackupFixture {
public:
    BackupFixture();

    ScopedTestEnv env;
    std::string backup; // the backup path
    std::string db;     // its catalogue

    // Moves to another backup path (any folder the test chooses) with a new catalogue.
    void UseBackupPath(const std::string& path);
    void AddSource(const std::string& source);
    void SetOption(const std::string& key, const std::string& value);
    // Runs a statement on the catalogue as it stands; an error throws.
    void Exec(const std::string& statement) const;
    // Today's daily log, or "" when there is none.
    std::string TodaysLog() const;
    std::string TodaysLogPath() const;
    std::vector<std::string> Rows(const std::string& sql) const;
    // Rows flattened into "a|b|c" texts.
    std::vector<std::string> RowTexts(const std::string& sql) const;
};

// The store's signature of some content, computed independently: MD5 of the content followed
// by one zero byte per started 8192-byte block, in lower-case hex.
std::string TestSignature(const std::string& content);
// Where the store keeps that content: <backup>/Files/ab/cd/<sig>.QRV (with the platform's
// separators).
std::string StoreFile(const std::string& backup, const std::string& content);
// The store entries that a set of contents needs, sorted, each once: its two folder levels
// ("ab/", "ab/cd/") and its file ("ab/cd/<sig>.QRV"), as ListTree of the store shows them.
std::vector<std::string> StoreEntries(const std::vector<std::string>& contents);
// A full path as the catalogue's rows hold it: on Linux every apostrophe becomes a backslash, a
// backslash becomes the escape byte 0x01 and "b", and 0x01 is doubled; on Windows every
// apostrophe becomes a "/".
std::string Encoded(const std::string& path);
// The regular files and folders below `root` in the order a backup run meets them: each
// folder's entries in the order the file system lists them, folders queued as they are met.
// Links and special files are left out; paths are joined with the platform's separator.
struct TreeWalk {
    std::vector<std::string> files;
    std::vector<std::string> folders;
};
TreeWalk WalkBreadthFirst(const std::string& root);
// The files of that walk.
std::vector<std::string> WalkOrder(const std::string& root);

// `count` files of 1 to 24 KiB in folders of ten below `root`, their bytes drawn from `seed`.
void MakeRandomFiles(const std::string& root, int count, unsigned seed);
