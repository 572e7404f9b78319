#pragma once

// The quick check's stamp columns as its tables hold them, in this order: device, inode, size,
// mtime, ctime, md5, length. The data file (CQuickCheckDB), its lookups and the rows a run
// notes all bind and read them here.

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
