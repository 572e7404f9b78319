#pragma once

// How this program has SQLite work, settled once before its first connection opens: SQLite
// keeps no count of the memory it takes. That count takes a lock shared by every connection of
// the process on each of SQLite's allocations, a few per row written, and a run writes its
// rows from several threads at once (the catalogue's, the metadata record's, the quick
// check's). Every place that opens a connection calls it first.

void PrepareSqliteLibrary();
