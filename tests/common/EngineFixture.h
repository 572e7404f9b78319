#pragma once

// The engine tests' backup folder: the backup path "bk" set with a new catalogue, the shared
// logger on "t.log" at level 3, and the run's clock standing still at `now` except where a
// test moves it, so elapsed times and rates are exact. Readers for the store, the log and the
// catalogue that a run leaves behind. Every engine test runs in both staging ways (the
// fixture's parameter; instantiate with STAGING_WAYS_INSTANTIATE).

#include "BackupFixture.h"
#include "StagingWays.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

class EngineFixture : public ::testing::TestWithParam<StagingWay> {
protected:
    using Strings = std::vector<std::string>;
    using Rows = std::vector<Strings>;

    EngineFixture();
    // The anonymous way is skipped, with the reason, where the test's folder has no anonymous
    // files: it would only run the named way again.
    void SetUp() override;

    // Where the store keeps `content`.
    std::string StoreFile(const std::string& content) const;
    Strings StoreListing() const;
    // Log messages without stamp and line end.
    Strings LogLines() const;
    Rows Query(const std::string& sql) const;

    ScopedTestEnv env;
    ScopedStagingWay staging{GetParam()};
    std::string source;
    uint32_t now = 5000;
};
