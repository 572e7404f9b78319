#include "app/modCatalogueQuery.h"

#include "app/modPaths.h"

void QueryCatalogue(ADOSQLite& db, const std::string& table, int32_t action,
                    const std::string& where, const std::string& sort) {
    db.Connect(GetDBPath());
    db.Table(table);
    db.Action(action);
    db.Where(where);
    db.Sort(sort);
    db.Exec();
}

void ExecOnCatalogue(ADOSQLite& db, const std::string& statement) {
    db.Connect(GetDBPath());
    db.Action(sqlaction::kAsIs);
    std::string text = statement;
    db.Exec(text);
}
