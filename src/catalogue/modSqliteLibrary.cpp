#include "catalogue/modSqliteLibrary.h"

#include <sqlite3.h>

void PrepareSqliteLibrary() {
    // Only before SQLite starts: a call made later is refused, and changes nothing.
    [[maybe_unused]] static const int settled = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
}
