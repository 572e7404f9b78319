#pragma once

// The quick check's rows that a run notes, kept until the run is committed in a private
// temporary SQLite file (removed when this object goes) rather than in memory: a run of millions
// of files holds only a small cache of them. Used by the run's own thread.

#include "catalogue/CQuickCheckDB.h"

#include <memory>

class CSqliteConnection;
class CSqliteStatement;

class CQuickCheckPending {
public:
    CQuickCheckPending();
    ~CQuickCheckPending();
    CQuickCheckPending(const CQuickCheckPending&) = delete;
    CQuickCheckPending& operator=(const CQuickCheckPending&) = delete;

    // Keeps `row` after those added before; false, now and for every later row, once a row
    // could not be kept.
    bool Add(const QuickCheckRow& row);
    // Every row kept, in the order added (CQuickCheckDB::Rows); false when a row could not be
    // kept or read back.
    bool ForEach(const std::function<bool(const QuickCheckRow&)>& each) const;

private:
    std::unique_ptr<CSqliteConnection> m_db;
    std::unique_ptr<CSqliteStatement> m_add;
    bool m_failed = false;
};
