#pragma once

// The two ways the store stages new content (anonymous files where the file system has them,
// named temporary files everywhere else), for tests that must hold in both: a parameterised
// fixture takes StagingWay as its parameter, instantiates with kBothStagingWays and names the
// instances with StagingWayName, and holds a ScopedStagingWay for the test's life. Windows has
// no anonymous files: there every such test runs in the named way only.

#include "engine/CStore.h"
#include "platform/COpenFolder.h"

#include <gtest/gtest.h>
#include <ostream>
#include <string>

#ifdef _WIN32
inline const auto kBothStagingWays = ::testing::Values(StagingWay::kNamed);
#else
inline const auto kBothStagingWays = ::testing::Values(StagingWay::kAnonymous, StagingWay::kNamed);
#endif

inline std::string StagingWayName(const ::testing::TestParamInfo<StagingWay>& info) {
    return info.param == StagingWay::kAnonymous ? "Anonymous" : "Named";
}

// How a failing test names its way.
inline void PrintTo(StagingWay way, std::ostream* out) {
    *out << (way == StagingWay::kAnonymous ? "anonymous files" : "named temporary files");
}

// Whether the file system of `folder` has anonymous files (O_TMPFILE).
inline bool HasAnonymousFiles(const std::string& folder) {
    COpenFolder open;
    return open.Open(folder) == 0 && open.HasAnonymousFiles();
}

// Stores opened while it lives stage the given way (anonymous only where the file system has
// anonymous files).
class ScopedStagingWay {
public:
    explicit ScopedStagingWay(StagingWay way) {
        CStore::UseAnonymousFiles(way == StagingWay::kAnonymous);
    }
    ~ScopedStagingWay() { CStore::UseAnonymousFiles(true); }
    ScopedStagingWay(const ScopedStagingWay&) = delete;
    ScopedStagingWay& operator=(const ScopedStagingWay&) = delete;
};

// Instantiates the parameterised suite `suite` in both staging ways.
#define STAGING_WAYS_INSTANTIATE(suite)                                                            \
    INSTANTIATE_TEST_SUITE_P(BothWays, suite, kBothStagingWays, StagingWayName)
