// The metadata record beside the catalogue: a run's entries kept only once the run is, found by
// path and by kind in the order the run met them, for that very run number and date alone; a
// record given up leaves what was there; records of runs that went are dropped; a damaged file
// is replaced when a run begins; the file is private; paths keep every byte.

#include "TestSupport.h"
#include "catalogue/CMetadataDB.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>
#ifndef _WIN32
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

// Readable failure output for entries.
void PrintTo(const EntryMetadata& entry, std::ostream* out) {
    *out << "{\"" << entry.path << "\", kind " << static_cast<int>(entry.kind) << ", "
         << entry.writeNs << ", mode " << entry.mode << ", " << entry.owner << ":" << entry.group
         << ", \"" << entry.target << "\"}";
}

namespace {

using Entries = std::vector<EntryMetadata>;
using Kind = EntryMetadata::Kind;

const EntryMetadata kFile{"/home/me/Bob's \xff\xfe notes\nline.txt",
                          Kind::kFile,
                          1'700'000'000'123'456'789,
                          04755,
                          1000,
                          100,
                          ""};
const EntryMetadata kFolder{"/home/me", Kind::kFolder, -915'148'800'000'000'001, 0750, 0, 0, ""};
const EntryMetadata kEmpty{
    "/home/me/empty", Kind::kEmptyFile, 4'102'444'800'000'000'000, 0600, 1000, 1000, ""};
const EntryMetadata kLink{"/home/me/up", Kind::kLink, 1, 0777, 1000, 1000, "../../etc"};

struct CMetadataDBTest : ::testing::Test {
    ScopedTestEnv env;
    std::string file = env.Path("Metadata.db");

    void KeepRun(int32_t bid, const std::string& datebk, const Entries& entries) {
        CMetadataDB record;
        ASSERT_TRUE(record.Begin(file, bid));
        for (const EntryMetadata& entry : entries)
            ASSERT_TRUE(record.Add(entry));
        ASSERT_TRUE(record.Keep(datebk));
    }
    // The entries of `kind` in the record of run bid/datebk; none when there is no record.
    std::optional<Entries> Read(int32_t bid, const std::string& datebk, Kind kind) {
        CMetadataReader reader;
        if (!reader.Open(file, bid, datebk)) return std::nullopt;
        return reader.OfKind(kind);
    }
};

TEST_F(CMetadataDBTest, AKeptRecordIsFoundByPathAndByKindInTheOrderMet) {
    KeepRun(7, "25/11/2026 21:30:00",
            {kFolder, kFile, kEmpty, kLink, {"/home/me/b", Kind::kFile, 2, 0644, 1, 2, ""}});
    CMetadataReader reader;
    ASSERT_TRUE(reader.Open(file, 7, "25/11/2026 21:30:00"));
    EXPECT_EQ(reader.Find(kFile.path), kFile);
    EXPECT_EQ(reader.Find(kLink.path), kLink);
    EXPECT_EQ(reader.Find("/home/me/none"), std::nullopt);
    EXPECT_EQ(reader.OfKind(Kind::kFile),
              (Entries{kFile, {"/home/me/b", Kind::kFile, 2, 0644, 1, 2, ""}}));
    EXPECT_EQ(reader.OfKind(Kind::kFolder), Entries{kFolder});
    EXPECT_EQ(reader.OfKind(Kind::kEmptyFile), Entries{kEmpty});
    EXPECT_EQ(reader.OfKind(Kind::kLink), Entries{kLink});
}

TEST_F(CMetadataDBTest, ARecordOfOverAThousandEntriesKeepsEachOneInTheOrderMet) {
    // Entries go in many to a statement and the rest one by one: every entry keeps its own
    // values and place whichever way it went in.
    Entries all;
    for (int i = 0; i < 1037; ++i) {
        const Kind kind = i % 3 == 0 ? Kind::kFile : i % 3 == 1 ? Kind::kEmptyFile : Kind::kLink;
        all.push_back({"/data/f" + std::to_string(1036 - i), kind, int64_t{i} * 1'000'000'007,
                       static_cast<uint32_t>(i % 512), static_cast<uint32_t>(i),
                       static_cast<uint32_t>(2 * i),
                       kind == Kind::kLink ? "target " + std::to_string(i) : ""});
    }
    KeepRun(3, "27/11/2026 06:00:00", all);
    CMetadataReader reader;
    ASSERT_TRUE(reader.Open(file, 3, "27/11/2026 06:00:00"));
    for (const Kind kind : {Kind::kFile, Kind::kEmptyFile, Kind::kLink}) {
        Entries ofKind;
        for (const EntryMetadata& entry : all)
            if (entry.kind == kind) ofKind.push_back(entry);
        EXPECT_EQ(reader.OfKind(kind), ofKind);
    }
    for (const size_t i : {size_t{0}, size_t{1}, size_t{15}, size_t{16}, size_t{17}, size_t{1036}})
        EXPECT_EQ(reader.Find(all[i].path), all[i]) << i;
}

TEST_F(CMetadataDBTest, OnlyThatRunNumberAndDateOpenIt) {
    KeepRun(7, "25/11/2026 21:30:00", {kFile});
    CMetadataReader reader;
    EXPECT_FALSE(reader.Open(file, 8, "25/11/2026 21:30:00"));
    EXPECT_FALSE(reader.Open(file, 7, "26/11/2026 21:30:00"));
    EXPECT_EQ(reader.Find(kFile.path), std::nullopt);
    EXPECT_EQ(reader.OfKind(Kind::kFile), Entries{});
    EXPECT_FALSE(reader.Open(env.Path("none.db"), 7, "25/11/2026 21:30:00"));
    EXPECT_FALSE(Exists(env.Path("none.db"))); // a read makes no file
}

TEST_F(CMetadataDBTest, ARecordNotKeptLeavesWhatWasThere) {
    KeepRun(7, "25/11/2026 21:30:00", {kFile});
    {
        CMetadataDB record;
        ASSERT_TRUE(record.Begin(file, 7));
        ASSERT_TRUE(record.Add(kFolder));
        // Ends without Keep: the run was not committed.
    }
    {
        CMetadataDB record;
        ASSERT_TRUE(record.Begin(file, 8));
        ASSERT_TRUE(record.Add(kLink));
        record.Abandon();
        EXPECT_FALSE(record.Keep("25/11/2026 22:00:00"));
    }
    EXPECT_EQ(Read(7, "25/11/2026 21:30:00", Kind::kFile), Entries{kFile});
    EXPECT_EQ(Read(7, "25/11/2026 21:30:00", Kind::kFolder), Entries{});
    EXPECT_EQ(Read(8, "25/11/2026 22:00:00", Kind::kLink), std::nullopt);
}

TEST_F(CMetadataDBTest, ANumberUsedAgainReplacesTheEarlierRecordOnceKept) {
    KeepRun(7, "25/11/2026 21:30:00", {kFile, kFolder});
    KeepRun(7, "26/11/2026 08:00:00", {kLink});
    EXPECT_EQ(Read(7, "25/11/2026 21:30:00", Kind::kFile), std::nullopt);
    EXPECT_EQ(Read(7, "26/11/2026 08:00:00", Kind::kLink), Entries{kLink});
    EXPECT_EQ(Read(7, "26/11/2026 08:00:00", Kind::kFolder), Entries{});
}

TEST_F(CMetadataDBTest, RecordsOfRunsThatWentAreDropped) {
    KeepRun(1, "01/11/2026 21:30:00", {kFile});
    KeepRun(2, "02/11/2026 21:30:00", {kFolder});
    KeepRun(3, "03/11/2026 21:30:00", {kLink});
    // Run 3's number now stands for another date: its record goes too.
    ASSERT_TRUE(CMetadataDB::KeepOnly(
        file,
        {{2, "02/11/2026 21:30:00"}, {3, "04/11/2026 21:30:00"}, {9, "09/11/2026 21:30:00"}}));
    EXPECT_EQ(Read(1, "01/11/2026 21:30:00", Kind::kFile), std::nullopt);
    EXPECT_EQ(Read(2, "02/11/2026 21:30:00", Kind::kFolder), Entries{kFolder});
    EXPECT_EQ(Read(3, "03/11/2026 21:30:00", Kind::kLink), std::nullopt);
    ASSERT_TRUE(CMetadataDB::KeepOnly(file, {}));
    EXPECT_EQ(Read(2, "02/11/2026 21:30:00", Kind::kFolder), std::nullopt);
    // Without a file there is nothing to drop, and nothing is made.
    EXPECT_TRUE(CMetadataDB::KeepOnly(env.Path("none.db"), {}));
    EXPECT_FALSE(Exists(env.Path("none.db")));
}

TEST_F(CMetadataDBTest, ADamagedFileIsReplacedWhenARunBegins) {
    WriteFile(file, "not a database, and no record either");
    CMetadataReader reader;
    EXPECT_FALSE(reader.Open(file, 1, "01/11/2026 21:30:00"));
    EXPECT_FALSE(CMetadataDB::KeepOnly(file, {}));
    KeepRun(1, "01/11/2026 21:30:00", {kFile});
    EXPECT_EQ(Read(1, "01/11/2026 21:30:00", Kind::kFile), Entries{kFile});
}

// The entries are written on the record's own thread while the walk goes on handing more: far
// more than it lets wait at once all arrive, in the order handed, and a record given up midway
// keeps none of them.
TEST_F(CMetadataDBTest, ManyMoreEntriesThanWaitAtOnceAreAllKeptInTheOrderHanded) {
    Entries entries;
    for (int i = 0; i < 25'000; ++i)
        entries.push_back({"/home/me/" + std::to_string(i), i % 2 ? Kind::kFile : Kind::kFolder, i,
                           static_cast<uint32_t>(0600 + i % 64), 1000, 100, ""});
    KeepRun(3, "26/11/2026 09:00:00", entries);
    Entries files, folders;
    for (const EntryMetadata& entry : entries)
        (entry.kind == Kind::kFile ? files : folders).push_back(entry);
    EXPECT_EQ(Read(3, "26/11/2026 09:00:00", Kind::kFile), files);
    EXPECT_EQ(Read(3, "26/11/2026 09:00:00", Kind::kFolder), folders);

    CMetadataDB record;
    ASSERT_TRUE(record.Begin(file, 4));
    for (const EntryMetadata& entry : entries)
        ASSERT_TRUE(record.Add(entry));
    record.Abandon();
    EXPECT_FALSE(Read(4, "26/11/2026 09:00:00", Kind::kFile).has_value());
    EXPECT_EQ(Read(3, "26/11/2026 09:00:00", Kind::kFile), files);
}

// A folder's own entries are read at once: not those of its subfolders, nor of a folder whose
// name only begins with its name.
TEST_F(CMetadataDBTest, AFoldersEntriesAreReadWithoutThoseBelowItsSubfolders) {
    const auto at = [](const std::string& path, Kind kind) {
        return EntryMetadata{Native(path), kind, 1, 0644, 0, 0, ""};
    };
    KeepRun(1, "26/11/2026 09:00:00",
            {at("/home/me", Kind::kFolder), at("/home/me/b.txt", Kind::kFile),
             at("/home/me/sub", Kind::kFolder), at("/home/me/sub/c.txt", Kind::kFile),
             at("/home/me0/d.txt", Kind::kFile), at("/home/me/a.txt", Kind::kEmptyFile),
             at("/home/me-too/e.txt", Kind::kFile)});
    CMetadataReader reader;
    ASSERT_TRUE(reader.Open(file, 1, "26/11/2026 09:00:00"));
    Entries found;
    reader.InFolder(Native("/home/me"),
                    [&](const EntryMetadata& entry) { found.push_back(entry); });
    EXPECT_EQ(found,
              (Entries{at("/home/me/a.txt", Kind::kEmptyFile), at("/home/me/b.txt", Kind::kFile),
                       at("/home/me/sub", Kind::kFolder)}));
}

TEST_F(CMetadataDBTest, ABeginWhereNoFileCanBeMadeFailsAndTheRunGoesOnWithout) {
    CMetadataDB record;
    EXPECT_FALSE(record.Begin(env.Path("no such folder/Metadata.db"), 1));
    EXPECT_FALSE(record.Add(kFile));
    EXPECT_FALSE(record.Keep("01/11/2026 21:30:00"));
    EXPECT_EQ(ListTree(env.Root()), std::vector<std::string>{});
}

TEST_F(CMetadataDBTest, TheFileIsPrivateWhateverTheUmask) {
#ifdef _WIN32
    KeepRun(1, "01/11/2026 21:30:00", {kFile});
#else
    const mode_t saved = ::umask(0);
    KeepRun(1, "01/11/2026 21:30:00", {kFile});
    ::umask(saved);
#endif
    EXPECT_TRUE(IsPrivate(file));
}

#ifndef _WIN32
TEST_F(CMetadataDBTest, AFolderReachedThroughALinkHoldsItAndALinkInItsPlaceIsNotFollowed) {
    std::filesystem::create_directories(env.Path("drive/db"));
    std::filesystem::create_directory_symlink(env.Path("drive"), env.Path("backup"));
    file = env.Path("backup/db/Metadata.db");
    KeepRun(1, "01/11/2026 21:30:00", {kFile});
    EXPECT_EQ(Read(1, "01/11/2026 21:30:00", Kind::kFile), Entries{kFile});

    const std::string elsewhere = env.Path("elsewhere.db");
    std::filesystem::create_symlink(elsewhere, env.Path("drive/db/Linked.db"));
    CMetadataDB record;
    EXPECT_FALSE(record.Begin(env.Path("drive/db/Linked.db"), 2));
    EXPECT_FALSE(CMetadataDB::KeepOnly(env.Path("drive/db/Linked.db"), {}));
    EXPECT_FALSE(Exists(elsewhere));
}
#endif

#ifndef _WIN32
// A writer killed once its record outgrew the page cache leaves a hot journal, which a read-only
// connection cannot roll back: the reader then rolls it back through one that may write, and
// the records kept before are read as they were.
TEST_F(CMetadataDBTest, ARecordAKilledWriterLeftWithItsJournalIsRolledBackAndRead) {
    KeepRun(1, "01/01/2026 10:00:00", {kFolder, kFile});
    const pid_t writer = ::fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) {
        CMetadataDB record;
        if (!record.Begin(file, 2)) ::_exit(1);
        // Far more than SQLite's cache holds: pages reach the file before any commit.
        for (int i = 0; i < 20000; ++i)
            record.Add({"/home/me/" + std::to_string(i) + std::string(200, 'x'), Kind::kEmptyFile,
                        i, 0600, 0, 0, ""});
        ::kill(::getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(writer, &status, 0), writer);
    ASSERT_TRUE(WIFSIGNALED(status));
    struct stat journal {};
    ASSERT_EQ(::stat((file + "-journal").c_str(), &journal), 0);
    EXPECT_GT(journal.st_size, 0);

    CMetadataReader reader;
    ASSERT_TRUE(reader.Open(file, 1, "01/01/2026 10:00:00"));
    EXPECT_EQ(reader.Find(kFile.path), kFile);
    EXPECT_EQ(reader.OfKind(Kind::kFolder), Entries{kFolder});
    EXPECT_FALSE(Read(2, "01/01/2026 10:00:00", Kind::kEmptyFile).has_value());
}
#endif

TEST_F(CMetadataDBTest, ARunsTallyIsKeptWithItsRecordAndGoesWithIt) {
    RunTally tally;
    tally.seen = 48'526;
    tally.added = 312;
    tally.addedBytes = 1'400'000'000'000;
    tally.stored = 48'211;
    tally.empty = 3;
    tally.hidden = 12;
    tally.system = 1;
    tally.excluded = 2;
    tally.unreadable = 1;
    tally.problems = {"Could not read /home/me/new\nline: permission denied",
                      "1 file of /home/me could not be read"};
    {
        CMetadataDB record;
        ASSERT_TRUE(record.Begin(file, 1));
        ASSERT_TRUE(record.Keep("01/01/2026 10:00:00", &tally));
    }
    KeepRun(2, "02/01/2026 10:00:00", {kFile}); // kept without a tally
    {
        CMetadataDB record; // begun and given up: its tally is not kept
        ASSERT_TRUE(record.Begin(file, 3));
    }
    EXPECT_EQ(CMetadataDB::Tallies(file),
              (std::vector<KeptTally>{{1, "01/01/2026 10:00:00", tally}}));
    ASSERT_TRUE(CMetadataDB::KeepOnly(file, {{2, "02/01/2026 10:00:00"}}));
    EXPECT_EQ(CMetadataDB::Tallies(file), std::vector<KeptTally>{});
    EXPECT_EQ(CMetadataDB::Tallies(env.Path("none.db")), std::vector<KeptTally>{});
}

TEST_F(CMetadataDBTest, VacuumGivesTheSpaceOfDroppedRecordsBack) {
    EXPECT_TRUE(CMetadataDB::Vacuum(file)); // no record: nothing to do
    EXPECT_FALSE(std::filesystem::exists(file));
    Entries many;
    for (int i = 0; i < 3000; ++i)
        many.push_back({"/home/me/" + std::to_string(i) + std::string(100, 'x'), Kind::kFile, i,
                        0644, 0, 0, ""});
    KeepRun(1, "01/01/2026 10:00:00", many);
    KeepRun(2, "02/01/2026 10:00:00", {kFile});
    ASSERT_TRUE(CMetadataDB::KeepOnly(file, {{2, "02/01/2026 10:00:00"}}));
    const auto before = std::filesystem::file_size(file);
    ASSERT_TRUE(CMetadataDB::Vacuum(file));
    const auto after = std::filesystem::file_size(file);
    EXPECT_LT(after * 10, before) << before << " -> " << after;
    EXPECT_EQ(Read(2, "02/01/2026 10:00:00", Kind::kFile), Entries{kFile});
}

TEST(CMetadataDB, ItsFileLiesBesideTheCatalogue) {
    EXPECT_EQ(CMetadataDB::PathBeside(Native("/bk/db/Backup.db")), Native("/bk/db/Metadata.db"));
    EXPECT_EQ(CMetadataDB::PathBeside("Backup.db"), "Metadata.db");
}

} // namespace
