#pragma once

// A connection of its own to one SQLite file, for the data files beside the catalogue (the quick
// check's, the metadata record): opened with the catalogue's busy timeout, closed with the
// object. A file that cannot be opened leaves it false.

#include "catalogue/ADOSQLite.h"
#include "catalogue/modSqliteLibrary.h"
#include "platform/CFile.h"

#include <sqlite3.h>

#include <string>

class CSqliteConnection {
public:
    CSqliteConnection(const std::string& file, int flags) {
        PrepareSqliteLibrary();
        if (sqlite3_open_v2(file.c_str(), &m_db, flags, nullptr) != SQLITE_OK) Close();
        if (m_db) sqlite3_busy_timeout(m_db, ADOSQLite::kBusyTimeoutMs);
    }
    ~CSqliteConnection() { Close(); }
    CSqliteConnection(const CSqliteConnection&) = delete;
    CSqliteConnection& operator=(const CSqliteConnection&) = delete;

    explicit operator bool() const { return m_db != nullptr; }
    sqlite3* Handle() const { return m_db; }
    // Removes the database `file` with its journals, as a damaged or foreign file is replaced.
    static void RemoveFiles(const std::string& file) {
        for (const char* end : {"", "-journal", "-wal", "-shm"})
            RemoveFile(file + end);
    }
    // Runs `sql` (statements without rows); false at its first error.
    bool Run(const char* sql) {
        return sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    }

private:
    void Close() {
        sqlite3_close_v2(m_db);
        m_db = nullptr;
    }
    sqlite3* m_db = nullptr;
};
