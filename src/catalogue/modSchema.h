#pragma once

// The catalogue's format: the statements that create a new catalogue, in the order they run.

#include <array>

namespace schema {
inline constexpr std::array<const char*, 5> kTables = {
    "CREATE TABLE Setup (sid INTEGER PRIMARY KEY, key TEXT, value TEXT);",
    "CREATE TABLE Backups (bid INTEGER PRIMARY KEY, source TEXT, datebk DATETIME);",
    "CREATE TABLE Files (fid INTEGER PRIMARY KEY, bid INTEGER, md5 TEXT, path TEXT, file TEXT, "
    "backup TEXT, size TEXT, filedate DATETIME);",
    "CREATE TABLE Sources (sid INTEGER PRIMARY KEY, source TEXT);",
    "CREATE TABLE Paths (pid INTEGER PRIMARY KEY, bid INTEGER, path TEXT);",
};
inline constexpr std::array<const char*, 3> kIndexes = {
    "CREATE INDEX IDX_Files_1 ON Files (file);",
    "CREATE INDEX IDX_Files_2 ON Files (bid, path);",
    "CREATE INDEX IDX_Paths_1 ON Paths (bid);",
};
// Kept among the statements but never run: a catalogue has exactly the three indexes above.
inline constexpr const char* kUnusedIndex = "CREATE INDEX IDX_Files_3 ON Files (bid, file);";
inline constexpr const char* kPragma = "PRAGMA default_synchronous = OFF;";
inline constexpr const char* kDBVersion = "1";
} // namespace schema
