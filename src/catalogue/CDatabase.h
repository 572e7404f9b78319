#pragma once

// The catalogue connection of one backup run: one ADOSQLite connected once, holding one
// transaction, through which the run records its Backups, Paths and Files rows.
// Operations called while not connected do nothing and return 0 or "".

#include "catalogue/ADOSQLite.h"

#include <cstdint>
#include <memory>
#include <string>

class CSqliteStatement;

class CDatabase {
public:
    CDatabase();
    ~CDatabase();
    CDatabase(const CDatabase&) = delete;
    CDatabase& operator=(const CDatabase&) = delete;

    void Connect(const std::string& db);
    void Begin() { m_db.Begin(); }
    // Both let the rows written aside finish first (FinishRows).
    void Commit();
    void Rollback();
    // From here on AddBackupRecord hands its rows to a thread of their own, which writes them in
    // order on this connection while the run goes on with its next file. Nothing else may use
    // the connection until FinishRows.
    void WriteRowsAside();
    // Every row handed over is written, or counted among FailedWrites; the connection is the
    // caller's again.
    void FinishRows();
    // INSERT INTO Paths (bid, path) SELECT 12, '<encoded path>'; a SQL error shows "Error: ".
    void AddPath(int32_t bid, const std::string& path);
    // The new bid; -1 after a SQL error (shown), 0 when not connected.
    int32_t BackupRun(const std::string& source);
    // INSERT INTO Files (md5, file, backup, path, bid, size) ...; a SQL error is dropped. A
    // size that is a plain whole number goes in through one prepared statement (the run's
    // rows are most of its catalogue work); any other text goes in bare, as SQL.
    void AddBackupRecord(int32_t run, const std::string& sig, const std::string& source,
                         const std::string& target, const std::string& size);
    // The stored (encoded) file of some row with that signature, or "".
    std::string GetFileFromMD5(const std::string& md5);

    bool Connected() const { return m_connected; }
    // The rows that AddPath, BackupRun and AddBackupRecord could not write since Connect, and
    // the error text of the last of them; the run must not commit as if they were there.
    int32_t FailedWrites() const { return m_failedWrites; }
    const std::string& LastWriteError() const { return m_lastWriteError; }
    ADOSQLite& Connection() { return m_db; }

private:
    ADOSQLite m_db;
    bool m_connected = false;
    int32_t m_failedWrites = 0;
    std::string m_lastWriteError;

    std::unique_ptr<CSqliteStatement> m_addFile;  // prepared on the first row of a connection
    std::unique_ptr<CSqliteStatement> m_addFiles; // kRowsTogether rows at once, as m_addFile
    // A Files row as the run hands it over.
    struct FileRow {
        int32_t run;
        std::string sig, source, target;
        int64_t size;
    };
    static constexpr size_t kRowsTogether = 16;
    struct RowWriter;
    std::unique_ptr<RowWriter> m_writer; // while rows are written aside

    void NoteWrite();
    // The row through the prepared statement; false when it could not be written that way.
    bool AddPrepared(const FileRow& row);
    // The values of one row from parameter `first` on, as the literals of the statement made
    // by hand would give them: texts as text, numbers as numbers. The encoded names are kept in
    // `file` and `folder`, which the statement borrows until it ran.
    static void BindFileRow(CSqliteStatement& statement, int first, const FileRow& row,
                            std::string& file, std::string& folder);
    // kRowsTogether rows through one statement, in their order; false when it could not write
    // them, and then none of them is written.
    bool AddPreparedTogether(const FileRow* rows);
};
