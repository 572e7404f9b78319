// The few lines at the top of a run's report: the whole run, then each source with what it
// added, what the store held, what was left out and its problems.

#include "app/modRunSummary.h"

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

TEST(RunSummary, CountsAreGroupedByThousands) {
    EXPECT_EQ(GroupedCount(0), "0");
    EXPECT_EQ(GroupedCount(999), "999");
    EXPECT_EQ(GroupedCount(1000), "1,000");
    EXPECT_EQ(GroupedCount(48211), "48,211");
    EXPECT_EQ(GroupedCount(1234567890), "1,234,567,890");
    EXPECT_EQ(GroupedCount(-1234), "-1,234");
}

TEST(RunSummary, TheWholeRunThenEachSourceWithWhatItLeftOutAndItsProblems) {
    RunTally documents;
    documents.seen = 48'526;
    documents.added = 312;
    documents.addedBytes = 1'400'000'000;
    documents.stored = 48'211;
    documents.empty = 3;
    documents.hidden = 12;
    documents.unreadable = 2;
    documents.problems = {"Could not read /home/ann/Documents/a.pdf: permission denied",
                          "Could not read /home/ann/Documents/b.pdf: permission denied",
                          "2 files of /home/ann/Documents could not be read"};
    RunTally photos;
    photos.seen = 1;
    photos.stored = 1;
    EXPECT_EQ(RunSummaryLines({{"/home/ann/Documents", documents}, {"/home/ann/Photos", photos}}),
              (Lines{"Added 312 new files, 1.4 GB; 48,212 already stored; 3 problems.",
                     "/home/ann/Documents: 48,526 files, 312 new (1.4 GB), 48,211 already "
                     "stored; left out: 3 empty, 12 hidden, 2 unreadable.",
                     "  Could not read /home/ann/Documents/a.pdf: permission denied",
                     "  Could not read /home/ann/Documents/b.pdf: permission denied",
                     "  2 files of /home/ann/Documents could not be read",
                     "/home/ann/Photos: 1 file, 0 new (0 bytes), 1 already stored."}));
}

TEST(RunSummary, OneNewFileAndNoProblemsReadInTheSingular) {
    RunTally one;
    one.seen = 1;
    one.added = 1;
    one.addedBytes = 1;
    one.system = 1;
    one.excluded = 1;
    EXPECT_EQ(RunSummaryLines({{"/data", one}}),
              (Lines{"Added 1 new file, 1 byte; 0 already stored; no problems.",
                     "/data: 1 file, 1 new (1 byte), 0 already stored; left out: 1 system, 1 "
                     "excluded."}));
    EXPECT_EQ(RunSummaryLines({}), Lines{});
}

} // namespace
