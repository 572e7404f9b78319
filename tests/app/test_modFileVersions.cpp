// "Find in all runs" without the window, on a backup folder of three real runs of one source
// (a.txt changed and new.txt added for the second, gone.txt removed for the third): the
// versions a search finds, grouped by content with the runs that hold each, for a part of a
// name, a pattern, nothing, and names with an apostrophe, a backslash and bytes that are not
// UTF-8; and a chosen version restored to its place or elsewhere, or not at all when the person
// declines.

#include "BackupFixture.h"
#include "QuoteNames.h" // Linux only
#include "app/CRunControl.h"
#include "app/modFileVersions.h"
#include "app/modRunHistory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>

// Versions as readable text when a comparison fails.
void PrintTo(const VersionRun& run, std::ostream* out) {
    *out << "{run " << run.bid << " of " << run.source << " at " << run.datebk << ": "
         << ::testing::PrintToString(run.file) << " in " << run.backup << "}";
}

void PrintTo(const FileVersion& version, std::ostream* out) {
    *out << "\n  {" << ::testing::PrintToString(version.path) << ", " << version.md5 << ", "
         << version.size << " bytes, runs " << ::testing::PrintToString(version.runs) << "}";
}

namespace {

using Lines = std::vector<std::string>;

struct FileVersions : ::testing::Test {
    BackupFixture f;
    std::string src = f.env.Path("src");
    CCatalogueRows catalogue;
    CatalogueQuery query = catalogue.Query();

    void SetUp() override {
        StartTestLog(f.env);
        TestNode tree = Dir({{"a.txt", File("alpha")},
                             {"gone.txt", File("gone")},
                             {"Bob's notes.txt", File("bob")},
                             {"sub", Dir({{"a.txt", File("sub alpha")}})}});
#ifndef _WIN32
        tree.children.emplace_back("back\\slash.txt", File("backslash"));
        tree.children.emplace_back("bad\xff\xfe.txt", File("not UTF-8"));
#endif
        CreateTree(src, tree);
        BackUp({src}); // run 1
        WriteFile(src + Native("/a.txt"), "alpha, changed");
        WriteFile(src + Native("/new.txt"), "new");
        BackUp({src}); // run 2
        std::filesystem::remove(FsPath(src + Native("/gone.txt")));
        BackUp({src}); // run 3
    }

    static void BackUp(const std::vector<std::string>& sources) {
        CRunControl run(sources, BackupOptions{});
        run.cmdBackup_Click();
    }

    std::string Date(const std::string& bid) const {
        return f.Rows("SELECT datebk FROM Backups WHERE bid = " + bid)[0];
    }

    // The version of `content` at `relative` (written with "/") below `source`, held by the
    // runs `bids` (newest first).
    FileVersion Version(const std::string& relative, const std::string& content, const Lines& bids,
                        const std::string& source = {}) const {
        const std::string root = source.empty() ? src : source;
        FileVersion version{root + Native(relative), TestSignature(content), content.size(), {}};
        for (const std::string& bid : bids)
            version.runs.push_back(
                {bid, root, Date(bid), Encoded(version.path), StoreFile(f.backup, content)});
        return version;
    }

    VersionsFound Find(const std::string& search) {
        VersionsFound found;
        EXPECT_TRUE(FindFileVersions(query, search, found)) << catalogue.Problem();
        return found;
    }

    // The run `bid`'s row of the version of `content` found for `search`.
    VersionRun RunOf(const std::string& search, const std::string& content,
                     const std::string& bid) {
        for (const FileVersion& version : Find(search).versions)
            for (const VersionRun& run : version.runs)
                if (version.md5 == TestSignature(content) && run.bid == bid) return run;
        ADD_FAILURE() << "no version of " << content << " in run " << bid;
        return {};
    }
};

TEST_F(FileVersions, ASearchListsEachContentOfEachMatchingFileWithTheRunsThatHoldIt) {
    const VersionsFound found = Find("a.txt");
    EXPECT_EQ(found.versions, (std::vector<FileVersion>{
                                  Version("/a.txt", "alpha, changed", {"3", "2"}),
                                  Version("/a.txt", "alpha", {"1"}),
                                  Version("/sub/a.txt", "sub alpha", {"3", "2", "1"}),
                              }));
    EXPECT_EQ(found.files, 2u);
    EXPECT_EQ(found.runs, 3u);
    EXPECT_EQ(VersionsSummary(found), "3 versions of 2 files in 3 runs");
    EXPECT_EQ(VersionRunsText(found.versions[0]), "2 runs");
    EXPECT_EQ(VersionRunsText(found.versions[1]), "1 run");
}

TEST_F(FileVersions, AFileAddedOrRemovedIsHeldOnlyByTheRunsThatHadIt) {
    const VersionsFound found = Find("NE");
    EXPECT_EQ(found.versions, (std::vector<FileVersion>{
                                  Version("/gone.txt", "gone", {"2", "1"}),
                                  Version("/new.txt", "new", {"3", "2"}),
                              }));
    EXPECT_EQ(VersionsSummary(found), "2 versions of 2 files in 3 runs");
}

TEST_F(FileVersions, APatternMatchesTheWholeNameWithoutRegardToCase) {
    EXPECT_EQ(Find("[GN]*.TXT").versions, (std::vector<FileVersion>{
                                              Version("/gone.txt", "gone", {"2", "1"}),
                                              Version("/new.txt", "new", {"3", "2"}),
                                          }));
    // The whole name: "?.txt" is a name of five characters only.
    const VersionsFound found = Find("?.txt");
    EXPECT_EQ(found.versions, (std::vector<FileVersion>{
                                  Version("/a.txt", "alpha, changed", {"3", "2"}),
                                  Version("/a.txt", "alpha", {"1"}),
                                  Version("/sub/a.txt", "sub alpha", {"3", "2", "1"}),
                              }));
    EXPECT_EQ(Find("a.tx").versions.size(), 3u);
    EXPECT_EQ(Find("a.tx?").versions.size(), 3u);
    EXPECT_TRUE(Find("*.tx").versions.empty());
}

TEST_F(FileVersions, ASearchThatMatchesNothingFindsNoVersion) {
    const VersionsFound found = Find("zzz");
    EXPECT_TRUE(found.versions.empty());
    EXPECT_EQ(found.files, 0u);
    EXPECT_EQ(found.runs, 0u);
    EXPECT_EQ(VersionsSummary(found), "No file in any run matches");
    // A folder's name is not a file's.
    EXPECT_TRUE(Find("sub").versions.empty());
    // Nor does an empty search list every file.
    EXPECT_TRUE(Find("").versions.empty());
}

TEST_F(FileVersions, ANameWithAnApostropheIsFoundAndGivenAsItIs) {
    const VersionsFound found = Find("b's");
    EXPECT_EQ(found.versions, (std::vector<FileVersion>{
                                  Version("/Bob's notes.txt", "bob", {"3", "2", "1"}),
                              }));
    EXPECT_EQ(VersionsSummary(found), "1 version of 1 file in 3 runs");
}

TEST(VersionsSummaryWords, OneOfEachIsSingular) {
    VersionsFound found;
    found.versions.push_back({"/a", "sig", 1, {{"1", "/", "date", "/a", "store"}}});
    found.files = 1;
    found.runs = 1;
    EXPECT_EQ(VersionsSummary(found), "1 version of 1 file in 1 run");
}

#ifndef _WIN32
TEST_F(FileVersions, ANameWithABackslashIsFoundByItsBackslash) {
    const std::vector<FileVersion> expected = {
        Version("/back\\slash.txt", "backslash", {"3", "2", "1"})};
    EXPECT_EQ(Find("k\\s").versions, expected);
    EXPECT_EQ(Find("\\").versions, expected);
    // The apostrophe that the catalogue stores as a backslash is not one.
    EXPECT_EQ(Find("'").versions,
              (std::vector<FileVersion>{Version("/Bob's notes.txt", "bob", {"3", "2", "1"})}));
}

TEST_F(FileVersions, BytesThatAreNotUtf8AreMatchedAsTheyAre) {
    EXPECT_EQ(
        Find("\xff\xfe").versions,
        (std::vector<FileVersion>{Version("/bad\xff\xfe.txt", "not UTF-8", {"3", "2", "1"})}));
    EXPECT_EQ(Find("bad?\xfe*").versions.size(), 1u);
}

TEST_F(FileVersions, OfTwoRowsOfOnePlaceInAnOlderCatalogueTheChosenOneIsRestored) {
    const std::string quotes = f.env.Path("quotes");
    CreateTree(quotes, QuoteNamesTree());
    BackUp({quotes}); // run 4
    StoreQuoteNamesBeforeEscape(f, quotes, "4");
    // Both rows read back as q'r.txt: one file, two contents.
    VersionsFound found = Find("q'r");
    FileVersion one = Version("/q'r.txt", "ONE", {"4"}, quotes);
    FileVersion two = Version("/q'r.txt", "TWO", {"4"}, quotes);
    one.runs[0].file = two.runs[0].file = quotes + "/q\\r.txt";
    EXPECT_EQ(found.versions, (std::vector<FileVersion>{one, two}));
    EXPECT_EQ(VersionsSummary(found), "2 versions of 1 file in 1 run");

    const std::string other = f.env.Path("other");
    CreateTree(other, Dir());
    f.env.picker.Answer(other);
    const std::optional<RestoreOutcome> outcome = cmdRestoreVersionTo_Click(two.runs[0], true);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(VersionRestoreText(*outcome), "Restored " + other + "/q'r.txt");
    EXPECT_EQ(ReadFile(other + "/q'r.txt"), "TWO");
    EXPECT_TRUE(f.env.box.calls.empty());
}
#endif

TEST_F(FileVersions, ACatalogueThatCannotBeReadFindsNothingAndSaysWhy) {
    f.Exec("DROP TABLE Files;");
    VersionsFound found;
    found.files = 7;
    EXPECT_FALSE(FindFileVersions(query, "a.txt", found));
    EXPECT_TRUE(found.versions.empty());
    EXPECT_EQ(found.files, 0u);
    EXPECT_EQ(catalogue.Problem(), "no such table: Files");
}

TEST_F(FileVersions, RestoringAVersionToItsPlaceGivesThatVersionsBytes) {
    const VersionRun first = RunOf("a.txt", "alpha", "1");
    const std::optional<RestoreOutcome> outcome = cmdRestoreVersion_Click(first, true);
    EXPECT_EQ(f.env.box.calls,
              (std::vector<CScriptedMessageBox::Call>{
                  {"QRV will overwrite any existing files with the same name. Is this OK?", 33,
                   "QRV - Stashwell"}}));
    ASSERT_TRUE(outcome);
    EXPECT_TRUE(outcome->restored);
    EXPECT_TRUE(outcome->verified);
    EXPECT_EQ(ReadFile(src + Native("/a.txt")), "alpha");
    EXPECT_EQ(VersionRestoreText(*outcome), "Restored " + src + Native("/a.txt"));
    // And the later version over it again; a file the last run no longer holds comes back too.
    f.env.box.Answer(mb::kOK);
    f.env.box.Answer(mb::kOK);
    EXPECT_TRUE(cmdRestoreVersion_Click(RunOf("a.txt", "alpha, changed", "2"), false));
    EXPECT_EQ(ReadFile(src + Native("/a.txt")), "alpha, changed");
    EXPECT_TRUE(cmdRestoreVersion_Click(RunOf("gone.txt", "gone", "2"), false));
    EXPECT_EQ(ReadFile(src + Native("/gone.txt")), "gone");
    EXPECT_TRUE(f.env.picker.prompts.empty());
}

TEST_F(FileVersions, RestoringAVersionElsewhereKeepsItsPathBelowTheSource) {
    const std::string other = f.env.Path("other");
    CreateTree(other, Dir());
    f.env.picker.Answer(other);
    std::optional<RestoreOutcome> outcome =
        cmdRestoreVersionTo_Click(RunOf("a.txt", "sub alpha", "1"), true);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(VersionRestoreText(*outcome), "Restored " + other + Native("/sub/a.txt"));
    f.env.picker.Answer(other);
    outcome = cmdRestoreVersionTo_Click(RunOf("b's", "bob", "3"), true);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(f.env.picker.prompts, (Lines{"Select alternate folder to restore to",
                                           "Select alternate folder to restore to"}));
    EXPECT_TRUE(f.env.box.calls.empty()); // no overwrite question on this way
    EXPECT_EQ(ListTree(other), (Lines{"Bob's notes.txt", "sub/", "sub/a.txt"}));
    EXPECT_EQ(ReadFile(other + Native("/sub/a.txt")), "sub alpha");
    EXPECT_EQ(ReadFile(other + Native("/Bob's notes.txt")), "bob");
}

TEST_F(FileVersions, ADeclinedQuestionRestoresNothing) {
    WriteFile(src + Native("/a.txt"), "changed since");
    f.env.box.Answer(mb::kCancel);
    EXPECT_FALSE(cmdRestoreVersion_Click(RunOf("a.txt", "alpha", "1"), true));
    EXPECT_EQ(f.env.box.calls.size(), 1u);
    EXPECT_EQ(ReadFile(src + Native("/a.txt")), "changed since");
}

TEST_F(FileVersions, ACancelledFolderPickRestoresNothing) {
    const Lines before = ListTree(f.env.Root());
    EXPECT_FALSE(cmdRestoreVersionTo_Click(RunOf("a.txt", "alpha", "1"), true));
    EXPECT_EQ(f.env.picker.prompts, Lines{"Select alternate folder to restore to"});
    EXPECT_EQ(ListTree(f.env.Root()), before);
}

TEST_F(FileVersions, AVersionWhoseStoreFileFailsVerificationSaysSo) {
    WriteFile(StoreFile(f.backup, "alpha"), "#####");
    const std::string other = f.env.Path("other");
    CreateTree(other, Dir());
    f.env.picker.Answer(other);
    const std::optional<RestoreOutcome> outcome =
        cmdRestoreVersionTo_Click(RunOf("a.txt", "alpha", "1"), true);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(VersionRestoreText(*outcome),
              "Restored " + other + Native("/a.txt") + ", but it failed verification");
    EXPECT_EQ(f.env.box.calls,
              (std::vector<CScriptedMessageBox::Call>{
                  {"Restored file failed verification " + Encoded(src + Native("/a.txt")), 16,
                   "QRV - Stashwell"}}));
}

} // namespace
