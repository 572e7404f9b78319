#pragma once

// The stamps that the quick check's data file (CQuickCheckDB) keeps for one source, read a folder
// at a time or one path at a time, so that a run never holds all of them in memory. It is used
// by one thread at a time; it reads the file in one read transaction from Open to its end, and
// nothing may write the file meanwhile (a run holds the backup folder).

#include "catalogue/CQuickCheckDB.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

class CSqliteConnection;
class CSqliteStatement;

class CQuickCheckLookup {
public:
    CQuickCheckLookup();
    ~CQuickCheckLookup();
    CQuickCheckLookup(const CQuickCheckLookup&) = delete;
    CQuickCheckLookup& operator=(const CQuickCheckLookup&) = delete;

    // True when `file` holds the rows of `run` for `source`; false, and every Find finds
    // nothing, when it is missing (it is never created here), unreadable, or holds another run.
    bool Open(const std::string& file, const std::string& source, const QuickCheckRun& run);
    // Hands `each` the rows kept directly in `folder` (a path up to its last separator), at most
    // `most` of them, each with its name alone for path; false when there were more, or when
    // the file failed to answer.
    bool Folder(const std::string& folder, size_t most,
                const std::function<void(QuickCheckRow&& row)>& each);
    // The row kept for `path`, if any; nothing either when the file fails to answer.
    std::optional<QuickCheckRow> Find(const std::string& path);
    // Lets go of the file and its read lock; nothing is found after.
    void Close();

private:
    std::unique_ptr<CSqliteConnection> m_db;
    std::unique_ptr<CSqliteStatement> m_find;
    std::unique_ptr<CSqliteStatement> m_folder;
};
