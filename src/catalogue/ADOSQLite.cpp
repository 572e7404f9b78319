#include "catalogue/ADOSQLite.h"

// How it works: every statement text is run with a prepare/step loop over its tail, so a text
// that holds several statements runs them all; each row of each statement is fetched as text
// (NULL reads as "") into one table whose row 0 holds the column names, the shape the typeless
// engine's table call returned. The builder checks Table against the table list read at
// Connect, so a table created through this connection is unknown until the next Connect.

#include "catalogue/modSqliteLibrary.h"
#include "catalogue/modStatementTrace.h"
#include "platform/CFile.h"
#include "platform/modFileStatus.h"
#include "platform/modPlatformPaths.h"
#include "support/CServiceContext.h"
#include "support/modMsgBox.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <algorithm>
#include <sqlite3.h>
#include <utility>

namespace {

struct LibVersionProbeChoice {
    std::function<int()> probe;
};

std::function<int()>& LibVersionProbe() {
    return ServicePart<LibVersionProbeChoice>().probe;
}

int RunningLibVersion() {
    const auto& probe = LibVersionProbe();
    return probe ? probe() : sqlite3_libversion_number();
}

bool PathExists(const std::string& path) {
    return StatusOf(path).Exists();
}

using ResultTable = std::vector<std::vector<std::string>>;

std::string ColumnText(sqlite3_stmt* stmt, int column) {
    const auto* text = sqlite3_column_text(stmt, column);
    if (!text) return {};
    return std::string(reinterpret_cast<const char*>(text),
                       static_cast<size_t>(sqlite3_column_bytes(stmt, column)));
}

// Runs one statement that has been prepared, appending its rows to `table` (row 0 is added by
// the first statement that yields a row). False with the engine's text in `error` on failure.
bool StepAll(sqlite3* db, sqlite3_stmt* stmt, ResultTable& table, std::string& error) {
    const int columns = sqlite3_column_count(stmt);
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        if (table.empty()) {
            auto& header = table.emplace_back();
            header.reserve(static_cast<size_t>(columns));
            for (int c = 0; c < columns; ++c)
                header.emplace_back(sqlite3_column_name(stmt, c));
        } else if (table.front().size() != static_cast<size_t>(columns)) {
            error = "sqlite3_get_table() called with two or more incompatible queries";
            return false;
        }
        auto& row = table.emplace_back();
        row.reserve(static_cast<size_t>(columns));
        for (int c = 0; c < columns; ++c)
            row.push_back(ColumnText(stmt, c));
    }
    if (rc == SQLITE_DONE) return true;
    error = sqlite3_errmsg(db);
    return false;
}

// Whether nothing but blanks, comments and lone ";" follow in [next, end).
bool NothingFollows(sqlite3* db, const char* next, const char* end) {
    while (next < end) {
        sqlite3_stmt* stmt = nullptr;
        const char* tail = nullptr;
        if (sqlite3_prepare_v2(db, next, static_cast<int>(end - next), &stmt, &tail) != SQLITE_OK)
            return false;
        if (stmt) {
            sqlite3_finalize(stmt);
            return false;
        }
        next = tail;
    }
    return true;
}

// Runs every statement of `sql`; the whole result goes into `table`, which is left empty when
// no statement yields a row. An engine error leaves its text in `error` and `table` empty.
// With `single`, `sql` is a statement built from fields and must be one statement: an
// apostrophe in a value that ends the value early makes it fail, and nothing of it runs, never
// what follows the apostrophe as statements of their own (a Setup value typed as
// "'; DROP TABLE Sources; --").
bool RunTable(sqlite3* db, const std::string& sql, ResultTable& table, std::string& error,
              bool single = false) {
    table.clear();
    const char* next = sql.data();
    const char* const end = sql.data() + sql.size();
    while (next < end) {
        sqlite3_stmt* stmt = nullptr;
        const char* tail = nullptr;
        if (sqlite3_prepare_v2(db, next, static_cast<int>(end - next), &stmt, &tail) != SQLITE_OK) {
            error = sqlite3_errmsg(db);
            table.clear();
            return false;
        }
        next = tail;
        if (!stmt) continue; // blanks, comments or a lone ";"
        if (single && !NothingFollows(db, next, end)) {
            sqlite3_finalize(stmt);
            error = "a value ends the statement early; nothing of it was run: " + sql;
            return false;
        }
        const bool ok = StepAll(db, stmt, table, error);
        sqlite3_finalize(stmt);
        if (!ok) {
            table.clear();
            return false;
        }
    }
    return true;
}

} // namespace

ADOSQLite::ADOSQLite() {
    // The check comes first and Reset clears its error again: the box is its lasting effect.
    if (RunningLibVersion() != SQLITE_VERSION_NUMBER) {
        MsgBox("Wrong version of NVK_SQLite.dll available. Database may not work properly. "
               "Please correct",
               mb::kCritical);
        m_err = true;
        m_errMsg = "Incorrect NVK_SQLite.dll";
    }
    Reset();
}

ADOSQLite::~ADOSQLite() {
    CloseConnection();
}

void ADOSQLite::SetLibVersionProbe(std::function<int()> probe) {
    LibVersionProbe() = std::move(probe);
}

bool ADOSQLite::Reset() {
    m_err = false;
    m_errMsg.clear();
    m_table.clear();
    m_where.clear();
    m_sort.clear();
    m_idx = 1;
    m_recordCount = 0;
    m_fieldNames.clear();
    m_fieldValues.clear();
    return true;
}

bool ADOSQLite::Connect(const std::string& db, bool create) {
    if (!create && !PathExists(db)) {
        m_err = true;
        m_errMsg = "DB not found";
        return false;
    }
    CloseConnection();
    // A new catalogue is private: the empty file is made 0600 before the engine opens it (the
    // engine's journal takes the mode of its database file).
    if (create && !PathExists(db)) MakePrivateFile(db);
    sqlite3* handle = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    PrepareSqliteLibrary();
    if (sqlite3_open_v2(db.c_str(), &handle, flags, nullptr) != SQLITE_OK) {
        m_err = true;
        m_errMsg = handle ? sqlite3_errmsg(handle) : "Out of memory";
        sqlite3_close_v2(handle);
        return false;
    }
    m_db = handle;
    TraceStatements(m_db);
    // Another program's short read or write on the catalogue is waited for, not taken for a
    // failure; one that lasts longer fails the statement, and the caller hears of it.
    sqlite3_busy_timeout(m_db, kBusyTimeoutMs);

    ErrHandler().CurrentOperation("Query Master table");
    ResultTable names;
    std::string error;
    if (!RunTable(m_db, "SELECT name FROM sqlite_master WHERE type='table' ORDER BY name", names,
                  error)) {
        m_err = true;
        m_errMsg = "Could not get table list: " + error;
        return false;
    }
    m_tables.clear();
    for (size_t r = 1; r < names.size(); ++r)
        m_tables.push_back(std::move(names[r][0]));
    return true;
}

void ADOSQLite::CloseConnection() {
    if (!m_db) return;
    sqlite3_close_v2(m_db);
    m_db = nullptr;
    m_tables.clear();
}

void ADOSQLite::ExecAsIs(std::string statement) {
    m_action = sqlaction::kAsIs; // left at 4 afterwards
    Exec(statement);
}

void ADOSQLite::Begin() {
    ExecAsIs("BEGIN;");
}

void ADOSQLite::Commit() {
    ExecAsIs("COMMIT;");
}

void ADOSQLite::Rollback() {
    ExecAsIs("ROLLBACK;");
}

void ADOSQLite::Compress() {
    ExecAsIs("VACUUM;");
}

void ADOSQLite::Exec() {
    std::string statement;
    Exec(statement);
}

void ADOSQLite::Exec(std::string& statement) {
    if (!m_db) {
        // Err stays as it was: callers that test only Err see success here.
        m_errMsg = "No database connection";
        return;
    }
    if (m_action >= sqlaction::kSelect && m_action <= sqlaction::kInsert)
        statement = BuildStatement();
    if (statement.empty()) {
        m_err = true;
        m_errMsg = "No SQL statement";
        return;
    }
    std::string error;
    const bool built = m_action >= sqlaction::kSelect && m_action <= sqlaction::kInsert;
    if (!RunTable(m_db, statement, m_result, error, built)) {
        // The counts stay as they were; the result is empty, so Field reads "".
        m_err = true;
        m_errMsg = std::move(error);
    } else {
        m_recordCount = 0;
        m_fieldCount = 0;
        if (m_action == sqlaction::kSelect && m_result.size() > 1) {
            m_recordCount = static_cast<int32_t>(m_result.size() - 1);
            m_fieldCount = static_cast<int32_t>(m_result.front().size());
        }
    }
    DoEvents();
}

bool ADOSQLite::TableKnown() const {
    return std::find(m_tables.begin(), m_tables.end(), m_table) != m_tables.end();
}

std::string ADOSQLite::BuildStatement() const {
    std::string sql;
    if (!TableKnown()) return sql;
    const auto appendList = [&](const std::vector<std::string>& items, const std::string& prefix) {
        for (size_t i = 0; i < items.size(); ++i) {
            if (i > 0) sql += ", ";
            sql += prefix;
            sql += items[i];
        }
    };
    size_t size = 64 + m_table.size() + m_where.size() + m_sort.size();
    for (size_t i = 0; i < m_fieldNames.size(); ++i)
        size += m_fieldNames[i].size() + m_fieldValues[i].size() + m_table.size() + 8;
    sql.reserve(size);
    switch (m_action) {
    case sqlaction::kSelect:
        sql += "SELECT * FROM  ";
        sql += m_table;
        if (!m_where.empty()) sql += " WHERE " + m_where;
        if (!m_sort.empty()) sql += " ORDER BY " + m_sort;
        break;
    case sqlaction::kUpdate:
        sql += "UPDATE " + m_table + " SET ";
        for (size_t i = 0; i < m_fieldNames.size(); ++i) {
            if (i > 0) sql += ", ";
            sql += m_fieldNames[i];
            sql += " = ";
            sql += m_fieldValues[i];
        }
        if (!m_where.empty()) sql += " WHERE " + m_where;
        break;
    case sqlaction::kDelete:
        sql += "DELETE ";
        appendList(m_fieldNames, m_table + ".");
        sql += " FROM " + m_table;
        if (!m_where.empty()) sql += " WHERE " + m_where;
        break;
    case sqlaction::kInsert:
        sql += "INSERT INTO " + m_table + " (";
        appendList(m_fieldNames, {});
        sql += ") SELECT ";
        appendList(m_fieldValues, {});
        break;
    default:
        break;
    }
    return sql;
}

int64_t ADOSQLite::LastRowID() const {
    return m_db ? sqlite3_last_insert_rowid(m_db) : 0;
}

bool ADOSQLite::Eof() {
    if (m_idx > m_recordCount) {
        m_idx = m_recordCount;
        return true;
    }
    return false;
}

void ADOSQLite::MoveFirst() {
    m_idx = 1;
}

void ADOSQLite::MoveLast() {
    m_idx = m_recordCount;
}

void ADOSQLite::MoveNext() {
    if (m_idx <= m_recordCount) ++m_idx;
}

void ADOSQLite::MovePrevious() {
    if (m_idx > 1) --m_idx;
}

void ADOSQLite::MoveAbs(int32_t position) {
    if (position >= 1 && position <= m_recordCount) m_idx = position;
}

std::string ADOSQLite::Field(const std::string& name) const {
    if (m_result.empty()) return {};
    const auto& header = m_result.front();
    const auto it = std::find(header.begin(), header.end(), name);
    if (it == header.end()) return {};
    return Field(static_cast<int32_t>(it - header.begin()));
}

std::string ADOSQLite::Field(int32_t column) const {
    if (m_idx < 1 || static_cast<size_t>(m_idx) >= m_result.size() || column < 0) return {};
    const auto& row = m_result[static_cast<size_t>(m_idx)];
    return static_cast<size_t>(column) < row.size() ? row[static_cast<size_t>(column)]
                                                    : std::string();
}

void ADOSQLite::Field(const std::string& name, const std::string& value) {
    m_fieldNames.push_back(name);
    m_fieldValues.push_back(value);
}
