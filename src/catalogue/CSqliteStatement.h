#pragma once

// One prepared statement of a CSqliteConnection, finalized with the object; false when `sql`
// could not be prepared. Paths are bound and read as blobs, so that their bytes stay as they are.

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>

class CSqliteStatement {
public:
    CSqliteStatement(sqlite3* db, const char* sql) {
        if (sqlite3_prepare_v2(db, sql, -1, &m_stmt, nullptr) != SQLITE_OK) m_stmt = nullptr;
    }
    ~CSqliteStatement() { sqlite3_finalize(m_stmt); }
    CSqliteStatement(const CSqliteStatement&) = delete;
    CSqliteStatement& operator=(const CSqliteStatement&) = delete;

    explicit operator bool() const { return m_stmt != nullptr; }
    sqlite3_stmt* Get() const { return m_stmt; }
    void Bind(int index, const std::string& bytes) {
        sqlite3_bind_blob(m_stmt, index, bytes.data(), static_cast<int>(bytes.size()),
                          SQLITE_TRANSIENT);
    }
    void BindText(int index, const std::string& text) {
        sqlite3_bind_text(m_stmt, index, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT);
    }
    void Bind(int index, int64_t value) { sqlite3_bind_int64(m_stmt, index, value); }
    // The same without a copy, for a statement run once per row (a copy of a row's texts costs
    // SQLite an allocation each): the bytes must stay until StepDoneAndUnbind.
    void BindBorrowed(int index, std::string_view bytes) {
        sqlite3_bind_blob(m_stmt, index, bytes.data(), static_cast<int>(bytes.size()),
                          SQLITE_STATIC);
    }
    void BindTextBorrowed(int index, std::string_view text) {
        sqlite3_bind_text(m_stmt, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }
    std::string Bytes(int column) const {
        const auto* data = static_cast<const char*>(sqlite3_column_blob(m_stmt, column));
        return data ? std::string(data, static_cast<size_t>(sqlite3_column_bytes(m_stmt, column)))
                    : std::string();
    }
    int64_t Number(int column) const { return sqlite3_column_int64(m_stmt, column); }
    // One row written: the statement is ready for the next.
    bool StepDone() {
        const bool done = sqlite3_step(m_stmt) == SQLITE_DONE;
        sqlite3_reset(m_stmt);
        return done;
    }
    // The same, and no value stays bound: the borrowed bytes may go.
    bool StepDoneAndUnbind() {
        const bool done = StepDone();
        sqlite3_clear_bindings(m_stmt);
        return done;
    }

private:
    sqlite3_stmt* m_stmt = nullptr;
};
