#pragma once

// The quick check's stamp columns as its tables hold them, in this order: device, inode, size,
// mtime, ctime, md5, length. The data file (CQuickCheckDB), its lookups and the rows a run
// notes all bind and read them here, and the first two ask here whose stamps a file holds.

#include "catalogue/CQuickCheckDB.h"
#include "catalogue/CSqliteStatement.h"

// Binds `row`'s stamp, signature and length to the parameters from `first` on.
inline void BindStampColumns(CSqliteStatement& statement, int first, const QuickCheckRow& row) {
    statement.Bind(first, static_cast<int64_t>(row.stamp.device));
    statement.Bind(first + 1, static_cast<int64_t>(row.stamp.inode));
    statement.Bind(first + 2, row.stamp.size);
    statement.Bind(first + 3, row.stamp.mtimeNs);
    statement.Bind(first + 4, row.stamp.ctimeNs);
    statement.BindText(first + 5, row.signature);
    statement.Bind(first + 6, row.length);
}

// Reads the stamp, signature and length of `row` from the columns from `first` on.
inline void ReadStampColumns(const CSqliteStatement& read, int first, QuickCheckRow& row) {
    row.stamp = {static_cast<uint64_t>(read.Number(first)),
                 static_cast<uint64_t>(read.Number(first + 1)), read.Number(first + 2),
                 read.Number(first + 3), read.Number(first + 4)};
    row.signature = read.Bytes(first + 5);
    row.length = read.Number(first + 6);
}

// Whether the file open on `db` holds the stamps that `run` of `source` noted: its Runs row for
// the source names that run. Stamps of another run (the source's last run differs) are not used.
inline bool HoldsStampsOf(sqlite3* db, const std::string& source, const QuickCheckRun& run) {
    CSqliteStatement which(db, "SELECT bid, datebk FROM Runs WHERE source = ?1");
    if (!which) return false;
    which.Bind(1, source);
    if (sqlite3_step(which.Get()) != SQLITE_ROW) return false;
    return QuickCheckRun{static_cast<int32_t>(which.Number(0)), which.Bytes(1)} == run;
}
