#pragma once

// The one gateway to the catalogue database: a connection, a statement builder driven by
// Table/Where/Sort/Action and field/value pairs, one Exec, and navigation over the whole
// result (row 0 holds the column names), fetched at once as text. Errors never throw: they
// set Err/ErrMsg, which stay set until Reset. EOF is spelled Eof() here (EOF is a C macro).

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct sqlite3;

namespace sqlaction {
inline constexpr int32_t kSelect = 0;
inline constexpr int32_t kUpdate = 1;
inline constexpr int32_t kDelete = 2;
inline constexpr int32_t kInsert = 3;
inline constexpr int32_t kAsIs = 4;
} // namespace sqlaction

class ADOSQLite {
public:
    // How long a statement waits for a lock that another connection holds.
    static constexpr int kBusyTimeoutMs = 10000;

    ADOSQLite();
    ~ADOSQLite();
    ADOSQLite(const ADOSQLite&) = delete;
    ADOSQLite& operator=(const ADOSQLite&) = delete;

    bool Reset();
    bool Connect(const std::string& db, bool create = false);
    void CloseConnection();
    bool Err() const { return m_err; }
    const std::string& ErrMsg() const { return m_errMsg; }

    void Table(const std::string& value) { m_table = value; }
    const std::string& Table() const { return m_table; }
    void Where(const std::string& value) { m_where = value; }
    const std::string& Where() const { return m_where; }
    void Sort(const std::string& value) { m_sort = value; }
    const std::string& Sort() const { return m_sort; }
    void Action(int32_t value) { m_action = value; }
    int32_t Action() const { return m_action; }

    // "BEGIN;", "COMMIT;", "ROLLBACK;", "VACUUM;" with Action 4 (left at 4).
    void Begin();
    void Commit();
    void Rollback();
    void Compress();

    // Builds (Action 0 to 3) and runs the statement; a built statement is written back.
    void Exec(std::string& statement);
    void Exec();

    int64_t LastRowID() const;
    int32_t Idx() const { return m_idx; }
    int32_t RecordCount() const { return m_recordCount; }
    int32_t FieldCount() const { return m_fieldCount; }
    bool BOF() const { return m_idx == 1; }
    // Past the end: moves the row back onto the last row and answers true.
    bool Eof();
    void MoveFirst();
    void MoveLast();
    void MoveNext();
    void MovePrevious();
    void MoveAbs(int32_t position);

    // The value of a column (by exact name, or by 0-based number) in the current row.
    std::string Field(const std::string& name) const;
    std::string Field(int32_t column) const;
    // Appends a field/value pair for the next built statement; the value is used as it stands.
    void Field(const std::string& name, const std::string& value);
    void Dump() const {}

    // The engine connection, for bulk readers that stream a large result (modBulkQuery.h).
    sqlite3* Handle() const { return m_db; }

    // The running SQLite version number, replaceable so that tests can simulate a mismatch.
    static void SetLibVersionProbe(std::function<int()> probe);

private:
    std::string BuildStatement() const;
    void ExecAsIs(std::string statement);
    bool TableKnown() const;

    bool m_err = false;
    std::string m_errMsg;
    sqlite3* m_db = nullptr;
    std::vector<std::string> m_tables;
    std::vector<std::vector<std::string>> m_result;
    int32_t m_recordCount = 0;
    int32_t m_fieldCount = 0;
    std::string m_table, m_where, m_sort;
    int32_t m_action = sqlaction::kSelect;
    int32_t m_idx = 1;
    std::vector<std::string> m_fieldNames, m_fieldValues;
};
