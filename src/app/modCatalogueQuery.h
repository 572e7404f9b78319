#pragma once

// The calling order every catalogue routine follows: its own connection to the catalogue of
// the backup path, the builder's inputs, one Exec. The caller then reads Err, RecordCount and
// the fields from `db`.

#include "catalogue/ADOSQLite.h"

#include <cstdint>
#include <string>

// A built statement (select, update, delete, insert) on `table`.
void QueryCatalogue(ADOSQLite& db, const std::string& table, int32_t action,
                    const std::string& where = {}, const std::string& sort = {});
// A statement run as it stands (Action 4).
void ExecOnCatalogue(ADOSQLite& db, const std::string& statement);
