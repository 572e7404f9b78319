#pragma once

// A catalogue opened read-only, for readers beside a running backup (the companion qrv): it can
// list and check while a run writes, and can never change a run. A read that fails says why in
// the engine's own words and what kind of failure it was.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

class CCatalogueReader {
public:
    using Row = std::vector<std::string_view>;
    enum class Failure {
        kNone,
        kBusy,        // another program has held it longer than the busy timeout
        kInterrupted, // it holds the journal of an interrupted run, which a reader cannot undo
        kUnreadable,  // anything else
    };

    CCatalogueReader() = default;
    ~CCatalogueReader();
    CCatalogueReader(const CCatalogueReader&) = delete;
    CCatalogueReader& operator=(const CCatalogueReader&) = delete;

    // Opens the catalogue file `path`; false with Error() set.
    bool Open(const std::string& path);
    void Close();
    // Runs `statement`, calling `row` per result row; false with Error() and LastFailure() set.
    bool Rows(const std::string& statement, const std::function<void(const Row&)>& row);
    const std::string& Error() const { return m_error; }
    Failure LastFailure() const { return m_failure; }

private:
    sqlite3* m_db = nullptr;
    std::string m_error;
    Failure m_failure = Failure::kNone;
};

// Whether `value` is LIKE `pattern` as the catalogue's engine compares (no ICU,
// case_sensitive_like off): ASCII letters without case, "_" any one character, "%" any run.
bool SqlLike(const std::string& pattern, const std::string& value);
// Whether the engine's LIKE also matches values stored as blobs.
bool SqlLikeMatchesBlobs();
