// The backup of one source: what reaches the store (each content once, under its signature,
// private modes), the rows of the run, the events, the log lines, duplicates, collisions, the
// legacy flat layout, cancel, and the Linux behaviour (links, FIFOs, sockets, odd names,
// hidden and unreadable files) and the Windows one (attribute bits, files held by another
// program).

#include "EngineFixture.h"
#include "StoreAudit.h"
#include "WindowsTestHelpers.h"

#include "app/modPaths.h"
#include "app/modSetup.h"
#include "catalogue/CMetadataDB.h"
#include "engine/CBackup.h"
#include "engine/CFileFind.h"
#include "platform/modFileIO.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "support/CMMTimer.h"
#include "support/modFSCommon.h"
#include "support/modFileCopy.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <filesystem>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>
#ifndef _WIN32
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

using Strings = std::vector<std::string>;
using Rows = std::vector<Strings>;

class CBackupTest : public EngineFixture {
protected:
    // Points the engine at the source and the catalogue, and records its events. The clock
    // moves 3 seconds when the file loop starts, so rates divide by 3.
    void Prepare(CBackup& backup, const std::string& folder) {
        backup.Source(folder);
        backup.BackupDB(GetDBPath());
        backup.BackupPath(GetFilesPath());
        backup.OnStart = [this](int32_t count) {
            events.push_back("Start(" + std::to_string(count) + ")");
            now += 3000;
        };
        backup.OnFileProgress = [this](int32_t done, float rate) {
            events.push_back("FileProgress(" + std::to_string(done) + ")");
            rates.push_back(rate);
        };
        backup.OnFinish = [this](double bytes) {
            events.push_back("Finish(" + std::to_string(static_cast<int64_t>(bytes)) + ")");
        };
    }

    CBackup::Result Run(CBackup& backup) {
        Prepare(backup, source);
        return backup.Exec();
    }

#ifndef _WIN32
    // A run in which files may not grow past 1 MiB, as FAT32 refuses 4 GiB: writes beyond fail
    // with EFBIG.
    CBackup::Result RunBelowOneMebibyte(CBackup& backup) {
        ErrHandler().DisplayMsgOnError(false);
        const ScopedFileSizeLimit limit(1 << 20);
        return Run(backup);
    }
#endif

    CBackup::Result Run() {
        CBackup backup;
        return Run(backup);
    }

    size_t CountLines(const std::string& prefix) const {
        size_t count = 0;
        for (const std::string& line : LogLines())
            if (line.compare(0, prefix.size(), prefix) == 0) ++count;
        return count;
    }

    bool HasLine(const std::string& line) const {
        const Strings lines = LogLines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    Rows FileRows() const {
        return Query("SELECT bid, md5, path, file, backup, size, filedate FROM Files ORDER BY fid");
    }

    Rows FileRow(const std::string& path, const std::string& content, int bid = 1) const {
        return {{std::to_string(bid), TestSignature(content),
                 Encoded(path.substr(0, path.rfind(kPathSeparator) + 1)), Encoded(path),
                 StoreFile(content), std::to_string(content.size()), ""}};
    }

    // Content of the size of `content` stored by an earlier run (bid 1): files of that size may
    // be stored already, so the run signs them ahead and copies them itself instead of staging
    // them as they are signed.
    void StoreEarlier(const std::string& content) {
        CreateTree(env.Path("earlier"), Dir({{"e", File(content)}}));
        CBackup earlier;
        Prepare(earlier, env.Path("earlier"));
        ASSERT_EQ(earlier.Exec(), CBackup::Result::kEmpty);
    }

    // The copy of every file by the run itself finds the file holding `content` now.
    static void RewriteWhenCopied(const std::string& content) {
        ActiveCopyMethods().mode3 = [content](const std::string& from, const std::string& to,
                                              ICopyObserver* observer) {
            WriteFile(from, content);
            return DefaultCopyMethods().mode3(from, to, observer);
        };
    }

    Strings events;
    std::vector<float> rates;
};

// ---- Backing up a source ----

TEST_P(CBackupTest, EveryFileIsCopiedIntoItsTwoLevelStoreFolder) {
    const std::string a = "first content", b = PatternContent(20000);
    CreateTree(source, Dir({{"a.txt", File(a)}, {"sub", Dir({{"b.bin", File(b)}})}}));
    EXPECT_EQ(Run(), CBackup::Result::kEmpty);
    EXPECT_EQ(StoreListing(), StoreEntries({a, b}));
    EXPECT_EQ(ReadFile(StoreFile(a)), a);
    EXPECT_EQ(ReadFile(StoreFile(b)), b);
    Rows expected = FileRow(source + Native("/a.txt"), a);
    expected.push_back(FileRow(source + Native("/sub/b.bin"), b)[0]);
    EXPECT_EQ(FileRows(), expected);
    EXPECT_EQ(env.box.calls.size(), 0u);
}

TEST_P(CBackupTest, OneBackupsRowHoldsTheSourceAndTheDate) {
    CreateTree(source, Dir({{"a.txt", File("a")}}));
    Run();
    const Rows rows = Query("SELECT bid, source, datebk FROM Backups");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][0], "1");
    EXPECT_EQ(rows[0][1], source);
    EXPECT_TRUE(std::regex_match(rows[0][2], std::regex(R"(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d)")))
        << rows[0][2];
}

TEST_P(CBackupTest, TwoIdenticalFilesCopyTheFirstAndRecordTheSecondAgainstTheSameBackupFile) {
    const std::string content = PatternContent(9000);
    CreateTree(source,
               Dir({{"one.dat", File(content)}, {"sub", Dir({{"two.dat", File(content)}})}}));
    CBackup backup;
    Run(backup);
    EXPECT_EQ(StoreListing(), StoreEntries({content}));
    EXPECT_EQ(CountLines("COP: "), 1u);
    EXPECT_TRUE(HasLine("COP: " + source + Native("/one.dat")));
    EXPECT_EQ(CountLines("File already in backup collection"), 1u);
    EXPECT_EQ(backup.Duplicates(), 1);
    EXPECT_EQ(backup.DuplicateBytes(), 9000);
    Rows expected = FileRow(source + Native("/one.dat"), content);
    expected.push_back(FileRow(source + Native("/sub/two.dat"), content)[0]);
    EXPECT_EQ(FileRows(), expected);
    EXPECT_TRUE(HasLine("Duplicate: " + source + Native("/sub/two.dat")));
    EXPECT_TRUE(HasLine("Fil not copd: 1"));
    EXPECT_TRUE(HasLine("Siz not copd: 9,000"));
}

TEST_P(CBackupTest, SecondRunOfSameSourceCopiesNothing) {
    const std::string a = "alpha", b = PatternContent(70000), c = "gamma";
    CreateTree(source, Dir({{"a", File(a)}, {"d", Dir({{"b", File(b)}, {"c", File(c)}})}}));
    Run();
    const Strings storeAfterFirst = StoreListing();
    const size_t copiesAfterFirst = CountLines("COP: ");
    ASSERT_EQ(copiesAfterFirst, 3u);

    CBackup second;
    EXPECT_EQ(Run(second), CBackup::Result::kEmpty);
    EXPECT_EQ(StoreListing(), storeAfterFirst);
    EXPECT_EQ(CountLines("COP: "), copiesAfterFirst);
    EXPECT_EQ(second.Duplicates(), 3);
    EXPECT_EQ(CountLines("Fil not copd: "), 2u);
    EXPECT_TRUE(HasLine("Fil not copd: 3"));
    EXPECT_TRUE(HasLine("Siz not copd: 70,010"));
    EXPECT_EQ(Query("SELECT bid, COUNT(*) FROM Files GROUP BY bid"),
              (Rows{{"1", "3"}, {"2", "3"}}));
    EXPECT_EQ(Query("SELECT COUNT(DISTINCT backup) FROM Files"), (Rows{{"3"}}));
}

TEST_P(CBackupTest, LegacyFlatLayoutFileIsMovedIntoItsFolderNotCopied) {
    const std::string content = "content that an earlier version stored flat";
    CreateTree(source, Dir({{"doc.txt", File(content)}}));
    const std::string sig = TestSignature(content);
    const std::string legacy = GetFilesPath() + Native("/") + sig + ".QRV";
    // Marked so that a copy of the source could not pass for the moved file.
    WriteFile(legacy, "legacy marker");
    Run();
    EXPECT_FALSE(Exists(legacy));
    EXPECT_EQ(ReadFile(StoreFile(content)), "legacy marker");
    EXPECT_EQ(StoreListing(), StoreEntries({content}));
    EXPECT_TRUE(HasLine("COP: " + source + Native("/doc.txt")));
    EXPECT_EQ(FileRows(), FileRow(source + Native("/doc.txt"), content));
}

TEST_P(CBackupTest, EmptySourceLogsZeroFilesAndRaisesStartAndFinishWithZero) {
    CreateTree(source, Dir());
    CBackup backup;
    Prepare(backup, source);
    backup.OnStart = [this](int32_t count) {
        events.push_back("Start(" + std::to_string(count) + ")");
        now += 2000;
    };
    EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
    EXPECT_EQ(events, (Strings{"Start(0)", "Finish(0)"}));
    EXPECT_EQ(backup.FilesFound(), 0);
    const Strings lines = LogLines();
    const Strings expected{
        "Finding files in source : " + source,
        "Elapsed time : 00:00:00",
        "Files found  : 0",
        "List of duplicates",
        "Total Files : ",
        "Tot Filesize: ",
        "Fil not copd: ",
        "Siz not copd: ",
        "Elapsed time: 00:00:02",
        "Throughput  : 0 MB/s",
    };
    // After "LogLevel switched to 3" and the enumerator's trace line.
    ASSERT_EQ(lines.size(), expected.size() + 2);
    EXPECT_EQ(lines[2], "FindFiles " + source);
    EXPECT_EQ(lines[1], expected[0]);
    EXPECT_EQ(Strings(lines.begin() + 3, lines.end()),
              Strings(expected.begin() + 1, expected.end()));
    EXPECT_EQ(Query("SELECT COUNT(*) FROM Backups"), (Rows{{"1"}}));
    EXPECT_EQ(Query("SELECT path FROM Paths"), (Rows{{source + Native("/")}}));
    EXPECT_TRUE(FileRows().empty());
    EXPECT_TRUE(env.box.calls.empty());
}

TEST_P(CBackupTest, SameSignatureWithDifferentSizesShowsTheBoxAndTheRunContinues) {
    const std::string content = "the file in the source";
    const std::string other = PatternContent(3000);
    CreateTree(source, Dir({{"a.txt", File(content)}, {"sub", Dir({{"b.txt", File(other)}})}}));
    const std::string target = StoreFile(content);
    CreateTree(GetFilesPath(),
               Dir({{target.substr(GetFilesPath().size() + 1, 2),
                     Dir({{target.substr(GetFilesPath().size() + 4, 2), Dir()}})}}));
    WriteFile(target, "a different, longer content under the same name");
    const std::string path = source + Native("/a.txt");

    CBackup backup;
    EXPECT_EQ(Run(backup), CBackup::Result::kEmpty);

    ASSERT_EQ(env.box.calls.size(), 1u);
    const CScriptedMessageBox::Call& box = env.box.calls[0];
    EXPECT_EQ(box.style, 16);
    EXPECT_EQ(box.title, "QRV");
    const std::string opening = "Woah! MD5 signature found 2 different files with same signature. ";
    EXPECT_EQ(box.text.compare(0, opening.size(), opening), 0) << box.text;
    const std::string closing = "'" + path + "' and '" + target;
    ASSERT_GE(box.text.size(), closing.size());
    EXPECT_EQ(box.text.substr(box.text.size() - closing.size()), closing);

    const Strings lines = LogLines();
    const auto at =
        std::find(lines.begin(), lines.end(), "File size: " + std::to_string(content.size()));
    ASSERT_NE(at, lines.end());
    ASSERT_GE(lines.end() - at, 7);
    EXPECT_EQ(at[1], "File size: " + std::to_string(ReadFile(target).size()));
    EXPECT_FALSE(at[2].empty()); // the warning line
    EXPECT_EQ(at[3], path);
    EXPECT_EQ(at[4], target);
    EXPECT_EQ(at[5], "These two files have the same MD5 and are different");
    EXPECT_EQ(at[6], "File already in backup collection");

    // The collision is recorded against the existing backup file, which stays as it was.
    EXPECT_EQ(ReadFile(target), "a different, longer content under the same name");
    Rows expected = FileRow(path, content);
    expected.push_back(FileRow(source + Native("/sub/b.txt"), other)[0]);
    EXPECT_EQ(FileRows(), expected);
    EXPECT_EQ(ReadFile(StoreFile(other)), other);
    EXPECT_EQ(backup.Duplicates(), 1);
}

TEST_P(CBackupTest, VerifySetToTrueNeverWritesVerLines) {
    CreateTree(source, Dir({{"a.txt", File("verify me")}, {"b.txt", File("and me")}}));
    CBackup backup;
    backup.Verify(true);
    EXPECT_FALSE(backup.Verify());
    Run(backup);
    EXPECT_EQ(CountLines("COP: "), 2u);
    EXPECT_EQ(CountLines("VER: "), 0u);
}

TEST_P(CBackupTest, CancelDuringTheFirstFileRaisesItsProgressThenRollsTheRunBack) {
    const std::string first = PatternContent(100000);
    CreateTree(source, Dir({{"first.bin", File(first)}, {"sub", Dir({{"second", File("2")}})}}));
    CBackup backup;
    Prepare(backup, source);
    // The engine lets pending window messages run while it works on the first file; the
    // window's Cancel click arrives there.
    backup.OnStart = [this, &backup](int32_t count) {
        events.push_back("Start(" + std::to_string(count) + ")");
        now += 3000;
        SetYieldHook([&backup] { backup.Cancel(); });
    };
    EXPECT_EQ(backup.Exec(), CBackup::Result::kCancel);
    EXPECT_EQ(events, (Strings{"Start(2)", "FileProgress(1)"}));
    EXPECT_TRUE(Query("SELECT * FROM Backups").empty());
    EXPECT_TRUE(Query("SELECT * FROM Files").empty());
    EXPECT_TRUE(Query("SELECT * FROM Paths").empty());
    // Whether the first file was stored before the cancel came depends on the read-ahead; a file
    // stored stays in the store, and nothing else is there.
    EXPECT_TRUE(StoreListing() == Strings{} || StoreListing() == StoreEntries({first}));
    EXPECT_EQ(CountLines("Total Files : "), 0u);
    // The cancelled run leaves without popping its procedure name.
    EXPECT_EQ(ErrHandler().StackPointer(), 1);
}

TEST_P(CBackupTest, CancelWhileALargeFileIsReadAheadStopsWithoutFinishingIt) {
    const std::string large = PatternContent(96 << 20);
    CreateTree(source, Dir({{"large.bin", File(large)}, {"sub", Dir({{"second", File("2")}})}}));
    CBackup backup;
    Prepare(backup, source);
    // The window's Cancel click arrives at the first chance while the run waits for the
    // read-ahead of the large file.
    backup.OnStart = [this, &backup](int32_t count) {
        events.push_back("Start(" + std::to_string(count) + ")");
        SetYieldHook([&backup] { backup.Cancel(); });
    };
    EXPECT_EQ(backup.Exec(), CBackup::Result::kCancel);
    EXPECT_EQ(events, (Strings{"Start(2)", "FileProgress(1)"}));
    EXPECT_EQ(StoreListing(), Strings{});
    EXPECT_EQ(CountLines("MD5: "), 0u);
    EXPECT_TRUE(Query("SELECT * FROM Backups").empty());
}

TEST_P(CBackupTest, CancelIsNeverClearedSoTheNextRunStopsAfterItsFirstFile) {
    CreateTree(source, Dir({{"a", File("a")}, {"sub", Dir({{"b", File("b")}})}}));
    CBackup backup;
    backup.Cancel();
    EXPECT_EQ(Run(backup), CBackup::Result::kCancel);
    events.clear();
    EXPECT_EQ(Run(backup), CBackup::Result::kCancel);
    EXPECT_EQ(events, (Strings{"Start(2)", "FileProgress(1)"}));
    EXPECT_TRUE(Query("SELECT * FROM Backups").empty());
}

TEST_P(CBackupTest, MissingSourceIsSkippedWithoutRowsOrEvents) {
    const std::string missing = env.Path("missing");
    CBackup backup;
    Prepare(backup, missing);
    EXPECT_EQ(backup.Exec(), CBackup::Result::kFalse);
    EXPECT_TRUE(events.empty());
    EXPECT_TRUE(HasLine(missing + " not accessible. Skipping"));
    EXPECT_TRUE(Query("SELECT * FROM Backups").empty());
    // This exit does not pop its procedure name.
    EXPECT_EQ(ErrHandler().StackPointer(), 1);
}

TEST_P(CBackupTest, ProgressIsRaisedForEveryListedFileIncludingSkippedOnes) {
    CreateTree(source,
               Dir({{"empty", File("")}, {"sub", Dir({{"full", File(PatternContent(3000))}})}}));
    CBackup backup;
    Run(backup);
    EXPECT_EQ(events, (Strings{"Start(2)", "FileProgress(1)", "FileProgress(2)", "Finish(3000)"}));
    // Bytes per second since the run began: 3000 bytes in 3 seconds.
    ASSERT_EQ(rates.size(), 2u);
    EXPECT_FLOAT_EQ(rates[0], 0.0f);
    EXPECT_FLOAT_EQ(rates[1], 1000.0f);
    EXPECT_EQ(backup.FilesFound(), 2);
    EXPECT_EQ(backup.BytesProcessed(), 3000);
}

TEST_P(CBackupTest, ZeroLengthFileIsSkippedWithItsLogLine) {
    CreateTree(source, Dir({{"empty.txt", File("")}}));
    Run();
    EXPECT_TRUE(HasLine("Skipping " + source + Native("/empty.txt. Zero length file")));
    EXPECT_TRUE(FileRows().empty());
    EXPECT_TRUE(StoreListing().empty());
}

TEST_P(CBackupTest, ExcludedPatternsAndFoldersAreNotBackedUp) {
    CreateTree(source, Dir({{"keep.txt", File("k")},
                            {"skip.tmp", File("t")},
                            {"CVS", Dir({{"Entries.txt", File("e")}})}}));
    CBackup backup;
    backup.Exclude("*.tmp");
    backup.ExDirs("cvs");
    Run(backup);
    EXPECT_EQ(FileRows(), FileRow(source + Native("/keep.txt"), "k"));
    EXPECT_EQ(Query("SELECT path FROM Paths ORDER BY pid"), (Rows{{source + Native("/")}}));
}

// ---- Bytes done ----

TEST_P(CBackupTest, TheBytesOfALargeFileMoveSeveralTimesBeforeItEnds) {
    constexpr uint64_t kSize = 300ull * 1000 * 1000;
    CreateTree(source, Dir({{"small.txt", File("small")}}));
    {
        int error = 0;
        const NativeFile file =
            OpenFileHandle(FSBuildPath(source, "large.bin"), OpenMode::kCreateNew, error);
        ASSERT_NE(file, kNoFile);
        ASSERT_EQ(TruncateTo(file, kSize), 0);
        ASSERT_EQ(CloseFileHandle(file), 0);
    }
    // Each look at the clock is a quarter of a second later: every look may raise the event.
    CMMTimer::SetTickSource([this] { return now += 250; });
    std::vector<std::pair<uint64_t, uint64_t>> seen; // done, total
    CBackup backup;
    Prepare(backup, source);
    backup.OnBytesProgress = [&](uint64_t done, uint64_t total) { seen.emplace_back(done, total); };
    EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
    CMMTimer::SetTickSource([this] { return now; });

    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.front(), std::make_pair(uint64_t{0}, kSize + 5)); // before any file
    EXPECT_EQ(seen.back(), std::make_pair(kSize + 5, kSize + 5));    // at the end
    // Whichever file the listing gave first, the large one's bytes were seen moving while it
    // was read: more than one value strictly between its start and its end.
    std::set<uint64_t> within;
    for (const auto& [done, total] : seen) {
        EXPECT_EQ(total, kSize + 5);
        if (done > 5 && done < kSize) within.insert(done);
    }
    EXPECT_GE(within.size(), 3u) << within.size() << " values within the large file";
    for (size_t i = 1; i < seen.size(); ++i)
        EXPECT_LE(seen[i - 1].first, seen[i].first) << "at event " << i;
}

// ---- The metadata record beside the catalogue ----

// What the record should hold of `path`, as the system tells it now.
EntryMetadata ExpectedEntry(const std::string& path, EntryMetadata::Kind kind,
                            const std::string& target = {}) {
    const PathStatus status = StatusOf(path, true);
    return {path, kind, status.writeNs, status.mode, status.owner, status.group, target};
}

TEST_P(CBackupTest, TheRunKeepsTheTimesPermissionBitsAndOwnersOfItsEntries) {
    using Kind = EntryMetadata::Kind;
    CreateTree(source, Dir({{"a.txt", File("alpha")},
                            {"sub", Dir({{"run.sh", File("#!/bin/sh\n")}, {"empty", File("")}})}}));
    const std::string a = FSBuildPath(source, "a.txt");
    const std::string sub = FSBuildPath(source, "sub");
    const std::string script = FSBuildPath(sub, "run.sh");
    const std::string empty = FSBuildPath(sub, "empty");
    ASSERT_EQ(SetPermissionBits(script, 0750), 0);
    ASSERT_EQ(SetPermissionBits(a, 0600), 0);
    ASSERT_EQ(SetWriteTime(a, 915'148'800'123'456'789), 0);
    ASSERT_EQ(SetWriteTime(sub, 4'102'444'800'000'000'001), 0);
    ASSERT_EQ(SetPermissionBits(sub, 0700), 0);
    EXPECT_EQ(Run(), CBackup::Result::kEmpty);

    CMetadataReader record;
    ASSERT_TRUE(record.Open(CMetadataDB::PathBeside(GetDBPath()), 1,
                            Query("SELECT datebk FROM Backups")[0][0]));
    EXPECT_EQ(record.Find(a), ExpectedEntry(a, Kind::kFile));
    EXPECT_EQ(record.Find(script), ExpectedEntry(script, Kind::kFile));
    EXPECT_EQ(record.OfKind(Kind::kFolder),
              (std::vector<EntryMetadata>{ExpectedEntry(source, Kind::kFolder),
                                          ExpectedEntry(sub, Kind::kFolder)}));
    EXPECT_EQ(record.OfKind(Kind::kEmptyFile),
              std::vector<EntryMetadata>{ExpectedEntry(empty, Kind::kEmptyFile)});
#ifndef _WIN32
    EXPECT_EQ(record.Find(script)->mode, 0750u);
    EXPECT_EQ(record.Find(a)->writeNs, 915'148'800'123'456'789);
#endif
    // The catalogue's rows are as they always were: the empty file has none.
    EXPECT_EQ(Query("SELECT count(*) FROM Files"), Rows{{"2"}});
}

TEST_P(CBackupTest, TheRunKeepsEachLinkAsTheTextItHoldsAndNeverAsAFile) {
    CreateTree(source, Dir({{"a.txt", File("alpha")}, {"sub", Dir({{"b.txt", File("beta")}})}}));
    if (MakeLink("a.txt", FSBuildPath(source, "to-a")) == ENOSYS)
        GTEST_SKIP() << "this system makes no links";
    ASSERT_EQ(MakeLink("sub", FSBuildPath(source, "to-sub")), 0);
    ASSERT_EQ(MakeLink("../../etc", FSBuildPath(source, "sub/up")), 0);
    ASSERT_EQ(MakeLink("/nowhere", FSBuildPath(source, ".hidden-link")), 0);
    ASSERT_EQ(MakeLink("a.txt", FSBuildPath(source, "skipped.tmp")), 0);
    CBackup backup;
    backup.Exclude("*.tmp");
    EXPECT_EQ(Run(backup), CBackup::Result::kEmpty);

    CMetadataReader record;
    ASSERT_TRUE(record.Open(CMetadataDB::PathBeside(GetDBPath()), 1,
                            Query("SELECT datebk FROM Backups")[0][0]));
    std::vector<std::string> links;
    for (const EntryMetadata& link : record.OfKind(EntryMetadata::Kind::kLink)) {
        EXPECT_EQ(link, ExpectedEntry(link.path, EntryMetadata::Kind::kLink, link.target));
        links.push_back(link.path.substr(source.size()) + " -> " + link.target);
    }
    // A hidden name and an excluded extension are left out as files are.
    std::sort(links.begin(), links.end());
    EXPECT_EQ(links, (std::vector<std::string>{"/sub/up -> ../../etc", "/to-a -> a.txt",
                                               "/to-sub -> sub"}));
    // No link is followed: the folder behind one is walked once, the file behind one stored once.
    EXPECT_EQ(Query("SELECT file FROM Files ORDER BY fid"),
              (Rows{{FSBuildPath(source, "a.txt")}, {FSBuildPath(source, "sub/b.txt")}}));
    EXPECT_EQ(Query("SELECT count(*) FROM Paths"), Rows{{"2"}});
}

TEST_P(CBackupTest, ACancelledRunKeepsNoMetadataAndTheEarlierRecordStays) {
    CreateTree(source, Dir({{"a.txt", File("alpha")}}));
    EXPECT_EQ(Run(), CBackup::Result::kEmpty);
    const std::string datebk = Query("SELECT datebk FROM Backups")[0][0];
    CBackup backup;
    Prepare(backup, source);
    backup.OnStart = [&backup](int32_t) { SetYieldHook([&backup] { backup.Cancel(); }); };
    EXPECT_EQ(backup.Exec(), CBackup::Result::kCancel);
    CMetadataReader record;
    EXPECT_FALSE(record.Open(CMetadataDB::PathBeside(GetDBPath()), 2, datebk));
    ASSERT_TRUE(record.Open(CMetadataDB::PathBeside(GetDBPath()), 1, datebk));
    EXPECT_TRUE(record.Find(FSBuildPath(source, "a.txt")).has_value());
}

// ---- The backup folder and the source ----

TEST_P(CBackupTest, SourceHoldingTheBackupFolderNeverBacksUpItsStoreCatalogueOrLogs) {
    CreateTree(source, Dir({{"a.txt", File("alpha")}, {"docs", Dir({{"d.txt", File("delta")}})}}));
    WriteRegSetting("BackupPath", source + Native("/bk"));
    CreateDB();
    CreateTree(source + Native("/bk/Logs"), Dir({{"QRV-20260101.LOG", File("a day's log")}}));
    for (int run = 1; run <= 2; ++run) {
        CBackup backup;
        Prepare(backup, source);
        backup.BackupFolder(GetBackupPath());
        EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
        EXPECT_TRUE(backup.Problems().refused.empty());
    }
    const std::string a = source + Native("/a.txt"), d = source + Native("/docs/d.txt");
    EXPECT_EQ(Query("SELECT bid, file FROM Files ORDER BY fid"),
              (Rows{{"1", a}, {"1", d}, {"2", a}, {"2", d}}));
    EXPECT_EQ(Query("SELECT bid, path FROM Paths ORDER BY pid"),
              (Rows{{"1", source + Native("/")},
                    {"1", source + Native("/docs/")},
                    {"2", source + Native("/")},
                    {"2", source + Native("/docs/")}}));
    EXPECT_EQ(StoreListing(), StoreEntries({"alpha", "delta"}));
    EXPECT_EQ(CountLines("Skipped the backup folder " + source + Native("/bk") +
                         ": Stashwell does not back up its own store"),
              2u);
    EXPECT_TRUE(HasLine("Files found  : 2"));
}

TEST_P(CBackupTest, SourceInsideTheBackupFolderIsNotWalked) {
    const std::string inside = GetBackupPath() + Native("/Files/../mine");
    CreateTree(GetBackupPath() + Native("/mine"), Dir({{"m.txt", File("m")}}));
    CBackup backup;
    Prepare(backup, inside);
    backup.BackupFolder(GetBackupPath());
    EXPECT_EQ(backup.Exec(), CBackup::Result::kFalse);
    EXPECT_TRUE(
        HasLine(inside + " lies inside the backup folder " + GetBackupPath() + ". Skipping"));
    EXPECT_EQ(backup.Problems().refused, "it lies inside the backup folder " + GetBackupPath() +
                                             ", and Stashwell does not back up its own store");
    EXPECT_TRUE(events.empty());
    EXPECT_TRUE(Query("SELECT * FROM Backups").empty());
    EXPECT_EQ(StoreListing(), Strings{});
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

#ifdef _WIN32
TEST_P(CBackupTest, TheBackupFolderItselfAsSourceIsNotWalked) {
    const std::string spelled = GetBackupPath() + Native("/Files/..");
    CBackup backup;
    Prepare(backup, spelled);
    backup.BackupFolder(GetBackupPath());
    EXPECT_EQ(backup.Exec(), CBackup::Result::kFalse);
    EXPECT_TRUE(HasLine(spelled + " is the backup folder. Skipping"));
    EXPECT_EQ(backup.Problems().refused,
              "it is the backup folder, and Stashwell does not back up its own store");
    EXPECT_TRUE(Query("SELECT * FROM Backups").empty());
}
#else
TEST_P(CBackupTest, TheBackupFolderItselfAsSourceIsNotWalked) {
    const std::string link = env.Path("bk-link");
    ASSERT_EQ(::symlink(GetBackupPath().c_str(), link.c_str()), 0);
    CBackup backup;
    Prepare(backup, link);
    backup.BackupFolder(GetBackupPath());
    EXPECT_EQ(backup.Exec(), CBackup::Result::kFalse);
    EXPECT_TRUE(HasLine(link + " is the backup folder. Skipping"));
    EXPECT_EQ(backup.Problems().refused,
              "it is the backup folder, and Stashwell does not back up its own store");
    EXPECT_TRUE(Query("SELECT * FROM Backups").empty());
}
#endif

TEST_P(CBackupTest, SourceBesideTheBackupFolderWithASimilarNameIsBackedUp) {
    // "bk2" begins with the text of "bk" but is not inside it.
    const std::string beside = GetBackupPath() + "2";
    CreateTree(beside, Dir({{"b.txt", File("beside")}}));
    CBackup backup;
    Prepare(backup, beside);
    backup.BackupFolder(GetBackupPath());
    EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
    EXPECT_EQ(FileRows(), FileRow(beside + Native("/b.txt"), "beside"));
}

TEST_P(CBackupTest, MD5CalcMethodIsOnlyStored) {
    CreateTree(source, Dir({{"a", File("abc")}}));
    CBackup backup;
    backup.MD5CalcMethod(7);
    EXPECT_EQ(backup.MD5CalcMethod(), 7);
    Run(backup);
    EXPECT_EQ(FileRows(), FileRow(source + Native("/a"), "abc"));
}

TEST_P(CBackupTest, CopyThatFailsEveryTryIsLoggedAndNotRecorded) {
    StoreEarlier("of this size.");
    CreateTree(source, Dir({{"a", File("will not copy")}}));
    const CopyMethods broken{
        [](const std::string&, const std::string&, ICopyObserver*) { return false; },
        [](const std::string&, const std::string&, ICopyObserver*) { return false; },
        [](const std::string&, const std::string&, ICopyObserver*) { return false; }};
    ActiveCopyMethods() = broken;
    ErrHandler().DisplayMsgOnError(false);
    EXPECT_EQ(Run(), CBackup::Result::kEmpty);
    EXPECT_TRUE(HasLine("Failed copy on " + source + Native("/a")));
    EXPECT_TRUE(HasLine("Failed to copy. Disk could be full"));
    EXPECT_EQ(Query("SELECT count(*) FROM Files WHERE bid = 2"), (Rows{{"0"}}));
    EXPECT_TRUE(HasLine("Total Files : 1"));
}

TEST_P(CBackupTest, ZeroElapsedTimeAtTheThroughputLineEndsTheRunThroughTheErrorHandler) {
    CreateTree(source, Dir({{"a", File("some bytes")}}));
    CBackup backup;
    Prepare(backup, source);
    backup.OnStart = [this](int32_t count) {
        events.push_back("Start(" + std::to_string(count) + ")");
    };
    EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
    EXPECT_EQ(events, (Strings{"Start(1)", "FileProgress(1)", "Finish(10)"}));
    EXPECT_EQ(ErrHandler().ErrProcedure(), "CBackup_Exec");
    EXPECT_EQ(ErrHandler().ErrNumber(), 11);
    EXPECT_EQ(ErrHandler().CurrentOperation(), "Source backup complete");
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0].style, 16);
    EXPECT_TRUE(HasLine("Elapsed time: 00:00:00"));
    EXPECT_EQ(CountLines("Throughput  : "), 0u);
    // The error came after the commit: the run's rows stay.
    EXPECT_EQ(FileRows(), FileRow(source + Native("/a"), "some bytes"));
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

TEST_P(CBackupTest, FileProgressOfARunYoungerThanTheClockResolutionIsNotAnError) {
    // A rate of bytes per second before the first millisecond has passed counts the run as one
    // millisecond old; it never ends the run.
    CreateTree(source, Dir({{"a", File("")}, {"b", File("bytes")}}));
    CBackup backup;
    Prepare(backup, source);
    backup.OnStart = [this](int32_t count) {
        events.push_back("Start(" + std::to_string(count) + ")");
    };
    backup.OnFileProgress = [this](int32_t done, float) {
        events.push_back("FileProgress(" + std::to_string(done) + ")");
        if (done == 2) now += 1000; // so that the throughput line has a time to divide by
    };
    EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
    EXPECT_EQ(events, (Strings{"Start(2)", "FileProgress(1)", "FileProgress(2)", "Finish(5)"}));
    EXPECT_TRUE(env.box.calls.empty());
}

TEST_P(CBackupTest, ApostrophesInTheSourceAndTheBackupPathAreRecordedAsTheyAre) {
    WriteRegSetting("BackupPath", env.Path("Bob's Backup"));
    CreateDB();
    const std::string odd = env.Path("Bob's Documents");
    CreateTree(odd, Dir({{"it's.txt", File("abc")}}));
    CBackup backup;
    Prepare(backup, odd);
    EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(Query("SELECT bid, source FROM Backups"), (Rows{{"1", odd}}));
    EXPECT_EQ(Query("SELECT bid, path FROM Paths"), (Rows{{"1", Encoded(odd + Native("/"))}}));
    EXPECT_EQ(FileRows(), FileRow(odd + Native("/it's.txt"), "abc"));
    EXPECT_EQ(ReadFile(StoreFile("abc")), "abc");
    EXPECT_EQ(AuditBackupFolder(env.Path("Bob's Backup")), Strings{});
}

TEST_P(CBackupTest, PropertiesKeepWhatTheCallerSets) {
    CBackup backup;
    EXPECT_FALSE(backup.IncludeHidden());
    EXPECT_FALSE(backup.IncludeSystem());
    EXPECT_FALSE(backup.Verify());
    EXPECT_EQ(backup.MD5CalcMethod(), 0);
    backup.IncludeSystem(true);
    backup.BackupDB("/some/db");
    backup.BackupPath("/some/store");
    EXPECT_TRUE(backup.IncludeSystem());
    EXPECT_EQ(backup.BackupDB(), "/some/db");
    EXPECT_EQ(backup.BackupPath(), "/some/store");
}

TEST_P(CBackupTest, BackupFileNameIsTheSignatureWithQrvOrAFreshTemporaryName) {
    EXPECT_EQ(CBackup::GetBackupFileName("0123456789abcdef0123456789abcdef"),
              "0123456789abcdef0123456789abcdef.QRV");
    const std::string fresh = CBackup::GetBackupFileName();
    ASSERT_GT(fresh.size(), 4u);
    EXPECT_EQ(fresh.substr(fresh.size() - 4), ".QRV");
    EXPECT_EQ(fresh.find(".tmp"), std::string::npos);
}

// ---- Linux behaviour, and Windows' own ----

#ifndef _WIN32
// Links, FIFOs and sockets, which Linux makes for anyone (Wine makes no links).
TEST_P(CBackupTest, SymbolicLinksAreNeverBackedUpOrFollowed) {
    CreateTree(env.Path("outside"), Dir({{"far.txt", File("far away")}}));
    CreateTree(source, Dir({{"real.txt", File("real")}, {"sub", Dir()}}));
    ASSERT_EQ(::symlink("real.txt", (source + "/link-to-file").c_str()), 0);
    ASSERT_EQ(::symlink(env.Path("outside").c_str(), (source + "/link-to-folder").c_str()), 0);
    ASSERT_EQ(::symlink("..", (source + "/sub/loop").c_str()), 0);
    Run();
    EXPECT_EQ(FileRows(), FileRow(source + "/real.txt", "real"));
    EXPECT_EQ(Query("SELECT path FROM Paths ORDER BY pid"),
              (Rows{{source + "/"}, {source + "/sub/"}}));
    EXPECT_EQ(StoreListing(), StoreEntries({"real"}));
}
#endif

#ifndef _WIN32
TEST_P(CBackupTest, FifoAndSocketAreNeverListedAndTheRunDoesNotHang) {
    CreateTree(source, Dir({{"a.txt", File("a")}, {"sub", Dir()}}));
    ASSERT_EQ(::mkfifo((source + "/sub/fifo").c_str(), 0600), 0);
    const int sock = MakeUnixSocket(source + "/socket");
    ASSERT_GE(sock, 0);
    CBackup backup;
    EXPECT_EQ(Run(backup), CBackup::Result::kEmpty);
    ::close(sock);
    EXPECT_EQ(backup.FilesFound(), 1);
    EXPECT_EQ(FileRows(), FileRow(source + "/a.txt", "a"));
}
#endif

TEST_P(CBackupTest, OddNamesAreBackedUpByteForByte) {
#ifdef _WIN32
    // The names Windows allows: UTF-8 here, no control characters, no backslash.
    const std::vector<std::pair<std::string, std::string>> files{
        {"caf\xc3\xa9 \xe6\x97\xa5.bin", "beyond ascii"},
        {"it's.txt", "apostrophe"},
        {"Bob's dir\\x'y.txt", "apostrophes in folder and name"},
    };
#else
    const std::vector<std::pair<std::string, std::string>> files{
        {"bad\xff\xfe name.bin", "invalid utf-8"},
        {"new\nline.txt", "new line"},
        {"it's.txt", "apostrophe"},
        {"back\\slash.txt", "backslash"},
        {"Bob's dir/x'y.txt", "apostrophes in folder and name"},
    };
#endif
    CreateTree(source, Dir({{"Bob's dir", Dir()}}));
    for (const auto& [name, content] : files)
        WriteFile(source + kPathSeparator + name, content);
    Run();
    for (const auto& [name, content] : files) {
        const std::string path = source + kPathSeparator + name;
        const Rows rows = Query("SELECT file, path, backup FROM Files WHERE md5 = '" +
                                TestSignature(content) + "'");
        ASSERT_EQ(rows.size(), 1u) << name;
        EXPECT_EQ(rows[0][0], Encoded(path));
        EXPECT_EQ(rows[0][1], Encoded(path.substr(0, path.rfind(kPathSeparator) + 1)));
        EXPECT_EQ(rows[0][2], StoreFile(content));
        EXPECT_EQ(ReadFile(rows[0][2]), ReadFile(path));
    }
    EXPECT_EQ(Query("SELECT path FROM Paths WHERE path LIKE '%Bob%'"),
              (Rows{{Encoded(source + Native("/Bob's dir/"))}}));
}

#ifdef _WIN32
TEST_P(CBackupTest, HiddenFilesAreSkippedUnlessIncluded) {
    CreateTree(source, Dir({{"hidden", File("hidden")},
                            {"shown", File("shown")},
                            {".dotted", File("dotted")},
                            {"dir", Dir({{"inner", File("inner")}, {"deep", File("deep")}})}}));
    for (const char* name : {"/hidden", "/dir", "/dir/deep"})
        ASSERT_TRUE(AddWindowsAttributes(source + Native(name), CFileFind::kHidden)) << name;
    Run();
    EXPECT_EQ(Query("SELECT file FROM Files ORDER BY file"), (Rows{{source + Native("/.dotted")},
                                                                   {source + Native("/dir/inner")},
                                                                   {source + Native("/shown")}}));

    CBackup withHidden;
    withHidden.IncludeHidden(true);
    EXPECT_TRUE(withHidden.IncludeHidden());
    Run(withHidden);
    EXPECT_EQ(Query("SELECT file FROM Files WHERE bid = 2 ORDER BY file"),
              (Rows{{source + Native("/.dotted")},
                    {source + Native("/dir/deep")},
                    {source + Native("/dir/inner")},
                    {source + Native("/hidden")},
                    {source + Native("/shown")}}));
}

TEST_P(CBackupTest, FileThatAnotherProgramHoldsWithoutSharingIsSkippedSilently) {
    CreateTree(source, Dir({{"locked", File("secret")}, {"sub", Dir({{"open", File("open")}})}}));
    const ExclusiveHold hold(source + Native("/locked"));
    ASSERT_TRUE(hold.Ok());
    CBackup backup;
    Run(backup);
    EXPECT_EQ(FileRows(), FileRow(source + Native("/sub/open"), "open"));
    EXPECT_EQ(events, (Strings{"Start(2)", "FileProgress(1)", "FileProgress(2)", "Finish(4)"}));
    for (const std::string& line : LogLines())
        EXPECT_EQ(line.find("locked"), std::string::npos) << line;
    EXPECT_TRUE(env.box.calls.empty());
}
#else
TEST_P(CBackupTest, HiddenFilesAreSkippedUnlessIncluded) {
    CreateTree(source, Dir({{".hidden", File("hidden")},
                            {"shown", File("shown")},
                            {".dir", Dir({{"inner", File("inner")}, {".deep", File("deep")}})}}));
    Run();
    EXPECT_EQ(Query("SELECT file FROM Files ORDER BY file"),
              (Rows{{source + Native("/.dir/inner")}, {source + Native("/shown")}}));

    CBackup withHidden;
    withHidden.IncludeHidden(true);
    EXPECT_TRUE(withHidden.IncludeHidden());
    Run(withHidden);
    EXPECT_EQ(Query("SELECT file FROM Files WHERE bid = 2 ORDER BY file"),
              (Rows{{source + Native("/.dir/.deep")},
                    {source + Native("/.dir/inner")},
                    {source + Native("/.hidden")},
                    {source + Native("/shown")}}));
}

TEST_P(CBackupTest, UnreadableFileIsSkippedSilently) {
    CreateTree(source, Dir({{"locked", File("secret")}, {"sub", Dir({{"open", File("open")}})}}));
    ASSERT_EQ(::chmod((source + Native("/locked")).c_str(), 0), 0);
    ScopedNoPermissionOverride noOverride;
    if (!noOverride.Ok()) GTEST_SKIP() << "permissions cannot be enforced here";
    CBackup backup;
    Run(backup);
    EXPECT_EQ(FileRows(), FileRow(source + Native("/sub/open"), "open"));
    EXPECT_EQ(events, (Strings{"Start(2)", "FileProgress(1)", "FileProgress(2)", "Finish(4)"}));
    for (const std::string& line : LogLines())
        EXPECT_EQ(line.find("locked"), std::string::npos) << line;
    EXPECT_TRUE(env.box.calls.empty());
}
#endif

#ifndef _WIN32
TEST_P(CBackupTest, TheTallyCountsWhatTheRunAddedFoundStoredAndLeftOut) {
    CreateTree(source, Dir({{"a.txt", File("alpha")},
                            {"copy.txt", File("alpha")},
                            {"empty.txt", File("")},
                            {".hidden", File("h")},
                            {"x.tmp", File("t")},
                            {"sub", Dir({{"b.txt", File("beta!")}, {"locked", File("secret")}})}}));
    ASSERT_EQ(::chmod((source + "/sub/locked").c_str(), 0), 0);
    ScopedNoPermissionOverride noOverride;
    if (!noOverride.Ok()) GTEST_SKIP() << "permissions cannot be enforced here";
    CBackup backup;
    backup.Exclude("*.tmp");
    EXPECT_EQ(Run(backup), CBackup::Result::kEmpty);
    const RunTally tally = backup.Tally();
    EXPECT_EQ(tally.seen, 5);  // a, copy, empty, b, locked
    EXPECT_EQ(tally.added, 2); // alpha (whichever file met it first) and beta!
    EXPECT_EQ(tally.addedBytes, 10);
    EXPECT_EQ(tally.stored, 1); // the other file of alpha
    EXPECT_EQ(tally.empty, 1);
    EXPECT_EQ(tally.hidden, 1);
    EXPECT_EQ(tally.system, 0);
    EXPECT_EQ(tally.excluded, 1);
    EXPECT_EQ(tally.unreadable, 1);
    ASSERT_EQ(tally.problems.size(), 2u);
    EXPECT_EQ(tally.problems[0].rfind("Could not read " + source + "/sub/locked: ", 0), 0u)
        << tally.problems[0];
    EXPECT_EQ(tally.problems[1], "1 file of " + source + " could not be read");
    // Kept with the run's record, as it was.
    EXPECT_EQ(CMetadataDB::Tallies(CMetadataDB::PathBeside(GetDBPath())),
              (std::vector<KeptTally>{{1, Query("SELECT datebk FROM Backups")[0][0], tally}}));
    // A second run finds every content stored.
    CBackup again;
    again.Exclude("*.tmp");
    EXPECT_EQ(Run(again), CBackup::Result::kEmpty);
    EXPECT_EQ(again.Tally().added, 0);
    EXPECT_EQ(again.Tally().stored, 3);
}
#endif

TEST_P(CBackupTest, FileThatVanishesAfterTheWalkIsSkippedSilently) {
    CreateTree(source, Dir({{"stays", File("stays")}, {"sub", Dir({{"goes", File("goes")}})}}));
    CBackup backup;
    Prepare(backup, source);
    backup.OnStart = [this](int32_t count) {
        events.push_back("Start(" + std::to_string(count) + ")");
        now += 3000;
        RemoveFile(source + Native("/sub/goes"));
    };
    EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
    EXPECT_EQ(events, (Strings{"Start(2)", "FileProgress(1)", "FileProgress(2)", "Finish(5)"}));
    EXPECT_EQ(FileRows(), FileRow(source + Native("/stays"), "stays"));
    EXPECT_EQ(CountLines("FIL: "), 1u);
    EXPECT_TRUE(env.box.calls.empty());
}

TEST_P(CBackupTest, StoreFilesAreMode0600AndStoreFoldersMode0700) {
    const std::string content = "public content";
    CreateTree(source, Dir({{"script.sh", File(content)}}));
#ifndef _WIN32
    ASSERT_EQ(::chmod((source + "/script.sh").c_str(), 0755), 0);
#endif
    Run();
    const std::string file = StoreFile(content);
    const std::string inner = file.substr(0, file.rfind(kPathSeparator));
    const std::string outer = inner.substr(0, inner.rfind(kPathSeparator));
    EXPECT_TRUE(IsPrivate(file));
    EXPECT_TRUE(IsPrivate(inner));
    EXPECT_TRUE(IsPrivate(outer));
}

TEST_P(CBackupTest, PathsRowsAreTheSourceThenEveryFolderBreadthFirst) {
    CreateTree(source, Dir({{"a", Dir({{"a1", Dir()}, {"f", File("f")}})},
                            {"b", Dir({{"b1", Dir({{"b2", Dir()}})}})},
                            {"top", File("t")}}));
    Run();
    Rows expected{{"1", source + kPathSeparator}};
    for (const std::string& folder : WalkBreadthFirst(source).folders)
        expected.push_back({"1", folder + kPathSeparator});
    ASSERT_EQ(expected.size(), 6u);
    EXPECT_EQ(Query("SELECT bid, path FROM Paths ORDER BY pid"), expected);
}

TEST_P(CBackupTest, SourceWithTrailingSlashBacksUpPathsWithOneSlash) {
    CreateTree(source, Dir({{"a.txt", File("a")}, {"sub", Dir({{"b.txt", File("b")}})}}));
    CBackup backup;
    Prepare(backup, source + Native("/"));
    backup.Exec();
    EXPECT_EQ(Query("SELECT file FROM Files ORDER BY fid"),
              (Rows{{source + Native("/a.txt")}, {source + Native("/sub/b.txt")}}));
    EXPECT_EQ(Query("SELECT source FROM Backups"), (Rows{{source + Native("/")}}));
    // The source's own row has one "/" at its end, like the folder part of its files' rows.
    EXPECT_EQ(Query("SELECT path FROM Paths ORDER BY pid"),
              (Rows{{source + Native("/")}, {source + Native("/sub/")}}));
    EXPECT_EQ(Query("SELECT DISTINCT path FROM Files WHERE file LIKE '%a.txt'"),
              (Rows{{source + Native("/")}}));
}

TEST_P(CBackupTest, FullLogOfASmallFirstRunAtLevelTwo) {
    Logger().LogLevel(2);
    const std::string big = PatternContent(2048000);
    CreateTree(source,
               Dir({{"a.bin", File(big)},
                    {"sub", Dir({{"b.bin", File(big)}, {"z", Dir({{"empty", File("")}})}})}}));
    CBackup backup;
    EXPECT_EQ(Run(backup), CBackup::Result::kEmpty);
    const std::string sig = TestSignature(big);
    const Strings expected{
        "LogLevel switched to 3",
        "LogLevel switched to 2",
        "Finding files in source : " + source,
        "Elapsed time : 00:00:00",
        "Files found  : 3",
        "FIL: " + source + Native("/a.bin"),
        "SIZ: 2048000",
        "MD5: " + sig,
        "COP: " + source + Native("/a.bin"),
        "FIL: " + source + Native("/sub/b.bin"),
        "SIZ: 2048000",
        "MD5: " + sig,
        "File already in backup collection",
        "FIL: " + source + Native("/sub/z/empty"),
        "SIZ: 0",
        "MD5: d41d8cd98f00b204e9800998ecf8427e",
        "Skipping " + source + Native("/sub/z/empty. Zero length file"),
        "List of duplicates",
        "Duplicate: " + source + Native("/sub/b.bin"),
        "Total Files : 3",
        "Tot Filesize: 4,096,000",
        "Fil not copd: 1",
        "Siz not copd: 2,048,000",
        "Elapsed time: 00:00:03",
        "Throughput  : 1.33 MB/s",
    };
    EXPECT_EQ(LogLines(), expected);
    EXPECT_EQ(events, (Strings{"Start(3)", "FileProgress(1)", "FileProgress(2)", "FileProgress(3)",
                               "Finish(4096000)"}));
}

} // namespace

namespace {

#ifndef _WIN32
// A backup drive pulled out during the run: its folder is gone and cannot be made again. (Windows
// holds the open store folder, which can then be neither removed nor renamed.)
TEST_P(CBackupTest, StoreDriveThatVanishesDuringTheRunCommitsNothingAndDoesNotHang) {
    CreateTree(source, Dir({{"a.txt", File("alpha")}, {"b.txt", File("beta")}}));
    const std::string media = env.Path("media");
    CreateTree(media + "/drive/Files", Dir());
    ErrHandler().DisplayMsgOnError(false);
    {
        CBackup backup;
        Prepare(backup, source);
        backup.BackupPath(media + "/drive/Files");
        backup.OnStart = [&](int32_t) { std::filesystem::remove_all(media + "/drive"); };
        EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
        EXPECT_EQ(ErrHandler().ErrNumber(), 68);
        EXPECT_EQ(ErrHandler().ErrDescription(),
                  "Backup folder not available: " + media + "/drive/Files");
        EXPECT_EQ(ErrHandler().ErrProcedure(), "CBackup_Exec");
        EXPECT_EQ(ErrHandler().CurrentOperation(), "Make backup");
    } // the engine's connection closes: its open transaction is rolled back
    const Strings log = LogMessages(ReadFile(env.Path("t.log")));
    EXPECT_EQ(std::find(log.begin(), log.end(), "Total Files : 2\r\n"), log.end());
    EXPECT_EQ(ListTree(media), Strings{});
    EXPECT_EQ(SqlRows(GetDBPath(), "SELECT count(*) FROM Backups"), (std::vector<Strings>{{"0"}}));
    EXPECT_EQ(SqlRows(GetDBPath(), "SELECT count(*) FROM Files"), (std::vector<Strings>{{"0"}}));
}

TEST_P(CBackupTest, BackupFolderRenamedDuringTheRunStopsItAndNothingIsMadeAtTheOldPath) {
    CreateTree(source, Dir({{"a.txt", File("alpha")}, {"b.txt", File("beta")}}));
    const std::string media = env.Path("media");
    CreateTree(media + "/drive/Files", Dir());
    ErrHandler().DisplayMsgOnError(false);
    {
        CBackup backup;
        Prepare(backup, source);
        backup.BackupPath(media + "/drive/Files");
        backup.OnStart = [&](int32_t) {
            ASSERT_EQ(::rename((media + "/drive").c_str(), (media + "/moved").c_str()), 0);
        };
        EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
        EXPECT_EQ(ErrHandler().ErrNumber(), 68);
        EXPECT_EQ(ErrHandler().CurrentOperation(), "Make backup");
    }
    // Nothing under the old path; the folder where it went keeps the mark of a run that did
    // not finish, so the next run there clears what it may have left.
    EXPECT_FALSE(Exists(media + "/drive"));
    EXPECT_EQ(ListTree(media), (Strings{"moved/", "moved/Files/", "moved/Files/.unfinished"}));
    EXPECT_EQ(SqlRows(GetDBPath(), "SELECT count(*) FROM Files"), (std::vector<Strings>{{"0"}}));
}
#endif

TEST_P(CBackupTest, MissingStoreFolderFailsTheRunBeforeAnythingIsWritten) {
    CreateTree(source, Dir({{"a.txt", File("alpha")}}));
    ErrHandler().DisplayMsgOnError(false);
    CBackup backup;
    Prepare(backup, source);
    backup.BackupPath(env.Path("unplugged/Files"));
    EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
    EXPECT_EQ(ErrHandler().ErrNumber(), 68);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "CBackup_Exec");
    EXPECT_TRUE(events.empty());
    EXPECT_FALSE(Exists(env.Path("unplugged")));
    EXPECT_EQ(Query("SELECT count(*) FROM Backups"), (Rows{{"0"}}));
}

// ---- Sources that change while the run reads them ----

TEST_P(CBackupTest, FilesRewrittenAfterTheyWereSignedAreStoredUnderTheSignatureOfWhatWasCopied) {
    // The small files are signed ahead; when the first of them is copied, all get new bytes of
    // the same size.
    std::vector<std::pair<std::string, TestNode>> smalls;
    Strings before, after;
    for (int i = 0; i < 5; ++i) {
        before.push_back("original content " + std::to_string(i));
        after.push_back("changed! content " + std::to_string(i));
        ASSERT_EQ(before.back().size(), after.back().size());
        smalls.emplace_back("s" + std::to_string(i), File(before.back()));
    }
    const std::string earlier(before[0].size(), 'e');
    StoreEarlier(earlier);
    CreateTree(source, Dir({{"later", Dir(smalls)}}));
    bool rewritten = false;
    ActiveCopyMethods().mode3 = [&](const std::string& from, const std::string& to,
                                    ICopyObserver* observer) {
        if (!rewritten) {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            for (int i = 0; i < 5; ++i)
                WriteFile(source + Native("/later/s") + std::to_string(i), after[i]);
            rewritten = true;
        }
        return DefaultCopyMethods().mode3(from, to, observer);
    };
    Run();
    ASSERT_TRUE(rewritten);
    Strings stored = after;
    stored.push_back(earlier);
    EXPECT_EQ(StoreListing(), StoreEntries(stored));
    EXPECT_EQ(AuditBackupFolder(GetBackupPath()), Strings{});
    for (int i = 0; i < 5; ++i) {
        const std::string path = source + Native("/later/s") + std::to_string(i);
        EXPECT_EQ(Query("SELECT md5, size FROM Files WHERE file = '" + path + "'"),
                  (Rows{{TestSignature(after[i]), std::to_string(after[i].size())}}));
        EXPECT_TRUE(HasLine("File changed while it was backed up: " + path));
    }

    // A quiet run of the original contents records and stores the original bytes.
    ActiveCopyMethods() = DefaultCopyMethods();
    for (int i = 0; i < 5; ++i)
        WriteFile(source + Native("/later/s") + std::to_string(i), before[i]);
    Run();
    for (int i = 0; i < 5; ++i) {
        const Rows row = Query("SELECT md5, backup FROM Files WHERE bid = 3 AND file = '" + source +
                               Native("/later/s") + std::to_string(i) + "'");
        ASSERT_EQ(row.size(), 1u);
        EXPECT_EQ(row[0][0], TestSignature(before[i]));
        EXPECT_EQ(ReadFile(row[0][1]), before[i]);
    }
    EXPECT_EQ(AuditBackupFolder(GetBackupPath()), Strings{});
}

TEST_P(CBackupTest, FileThatGrowsBeforeItIsCopiedIsRecordedWithTheLengthCopied) {
    StoreEarlier(std::string(11, 'e'));
    CreateTree(source, Dir({{"log.txt", File("first line\n")}}));
    RewriteWhenCopied("first line\nsecond line\n");
    Run();
    EXPECT_EQ(Query("SELECT bid, md5, path, file, backup, size, filedate FROM Files WHERE bid = 2"),
              FileRow(source + Native("/log.txt"), "first line\nsecond line\n", 2));
    EXPECT_EQ(StoreListing(), StoreEntries({"first line\nsecond line\n", std::string(11, 'e')}));
    EXPECT_EQ(AuditBackupFolder(GetBackupPath()), Strings{});
}

TEST_P(CBackupTest, FileEmptiedBeforeItIsCopiedIsSkippedAsAZeroLengthFile) {
    StoreEarlier(std::string(10, 'e'));
    CreateTree(source, Dir({{"gone.txt", File("soon empty")}}));
    RewriteWhenCopied("");
    Run();
    EXPECT_TRUE(HasLine("Skipping " + source + Native("/gone.txt. Zero length file")));
    EXPECT_EQ(Query("SELECT count(*) FROM Files WHERE bid = 2"), (Rows{{"0"}}));
    EXPECT_EQ(StoreListing(), StoreEntries({std::string(10, 'e')}));
}

TEST_P(CBackupTest, CopyThatCannotShowItsBytesIsSignedFromTheStoredFile) {
    // A copy method that writes without telling (here other bytes of the same size): the
    // stored file is read back and named after what it holds.
    StoreEarlier(std::string(9, 'e'));
    CreateTree(source, Dir({{"a.txt", File("as listed")}}));
    ActiveCopyMethods().mode3 = [&](const std::string&, const std::string& to, ICopyObserver*) {
        WriteFile(to, "different");
        return true;
    };
    Run();
    EXPECT_EQ(Query("SELECT bid, md5, path, file, backup, size, filedate FROM Files WHERE bid = 2"),
              FileRow(source + Native("/a.txt"), "different", 2));
    EXPECT_EQ(StoreListing(), StoreEntries({"different", std::string(9, 'e')}));
}

TEST_P(CBackupTest, NewContentIsStagedByTheRunsOwnCopyWhileItIsSignedAndNeverCopiedAgain) {
    // No stored content has its size: the read-ahead copies it into the store as it signs it,
    // through the run's own copy, and the run logs that copy's lines and only names the file.
    const std::string large = PatternContent(3 << 20);
    CreateTree(source, Dir({{"a.bin", File(large)}, {"b.txt", File("small")}}));
    std::atomic<int> copies = 0;
    ActiveCopyMethods().mode3 = [&](const std::string& from, const std::string& to,
                                    ICopyObserver* observer) {
        ++copies;
        return DefaultCopyMethods().mode3(from, to, observer);
    };
    Run();
    EXPECT_EQ(copies, 2);
    for (const std::string& path : {source + Native("/a.bin"), source + Native("/b.txt")}) {
        const Strings lines = LogLines();
        const auto cop = std::find(lines.begin(), lines.end(), "COP: " + path);
        ASSERT_GE(std::distance(cop, lines.end()), 3) << path;
        EXPECT_EQ(*(cop + 1), "CopyMode = 3. Returned: True");
        EXPECT_EQ(*(cop + 2), "OK on 1 tries");
    }
    EXPECT_EQ(StoreListing(), StoreEntries({large, "small"}));
    EXPECT_EQ(AuditBackupFolder(GetBackupPath()), Strings{});
}

TEST_P(CBackupTest, ManySmallNewFilesAreStagedBesideTheRunAndEachStoredOnce) {
    // The workers stage new files while the run records the files before them; of two files
    // with one content, the second staged copy goes again.
    MakeRandomFiles(source, 60, 5);
    CreateTree(source + Native("/twins"), Dir({{"x", File("twin")}, {"y", File("twin")}}));
    Run();
    EXPECT_EQ(Query("SELECT count(*), count(DISTINCT md5) FROM Files"), (Rows{{"62", "61"}}));
    EXPECT_EQ(AuditBackupFolder(GetBackupPath()), Strings{});
}

TEST_P(CBackupTest, CopyThatFailsInTheReadAheadIsReportedOnceAsTheRunsOwnAndNotTriedAgain) {
    // No stored content has the file's size, so a worker copies it; every way fails there.
    CreateTree(source, Dir({{"a", File("will not copy")}}));
    std::atomic<int> tries = 0;
    const CopyMethod failing = [&](const std::string&, const std::string&, ICopyObserver*) {
        ++tries;
        return false;
    };
    ActiveCopyMethods() = CopyMethods{failing, failing, failing};
    ErrHandler().DisplayMsgOnError(false);
    CBackup backup;
    EXPECT_EQ(Run(backup), CBackup::Result::kEmpty);
    EXPECT_EQ(tries, 3);
    const std::string path = source + Native("/a");
    const Strings lines = LogLines();
    const auto cop = std::find(lines.begin(), lines.end(), "COP: " + path);
    ASSERT_NE(cop, lines.end());
    EXPECT_EQ(Strings(cop, cop + 10),
              (Strings{"COP: " + path, "CopyMode = 3. Returned: False",
                       "Retry copy of " + path + "...", "Using Copy mode=2",
                       "CopyMode = 2. Returned: False", "Retry copy of " + path + "...",
                       "Using Copy mode=1", "CopyMode = 1. Returned: True",
                       "Failed copy on " + path, "Failed to copy. Disk could be full"}));
    EXPECT_EQ(ErrHandler().ErrProcedure(), "FSCopyFile");
    EXPECT_EQ(ErrHandler().ErrNumber(), 10001);
    EXPECT_EQ(backup.Problems().notStored, Strings{path + ": the copy into the store failed"});
    EXPECT_EQ(Query("SELECT count(*) FROM Files"), (Rows{{"0"}}));
    EXPECT_EQ(StoreListing(), Strings{});
}

#ifndef _WIN32
// A file size limit of the process, as a FAT32 drive refuses a file of 4 GiB.
std::string TooLargeProblem(const std::string& path) {
    return path + ": the copy into the store failed: the file system cannot hold a file this "
                  "large (FAT32 takes files below 4 GiB)";
}

TEST_P(CBackupTest, FileTooLargeForTheBackupDriveIsAProblemAndTheOtherFilesAreCommitted) {
    const std::string large = PatternContent(3 << 20);
    CreateTree(source, Dir({{"a.txt", File("small")}, {"big.bin", File(large)}}));
    CBackup backup;
    EXPECT_EQ(RunBelowOneMebibyte(backup), CBackup::Result::kEmpty);
    EXPECT_EQ(backup.Problems().notStored, Strings{TooLargeProblem(source + "/big.bin")});
    EXPECT_EQ(backup.Problems().lost, "");
    EXPECT_EQ(Query("SELECT file FROM Files"), (Rows{{source + "/a.txt"}}));
    EXPECT_TRUE(HasLine("Failed copy on " + source + "/big.bin"));
    EXPECT_EQ(StoreListing(), StoreEntries({"small"})); // nothing half-written, no temporary
}

TEST_P(CBackupTest, FileTooLargeForTheBackupDriveIsAProblemAlsoWhenTheRunCopiesItItself) {
    // Content of its size is stored already, so the run copies the file itself.
    const std::string large = PatternContent(3 << 20);
    StoreEarlier("x" + large.substr(1));
    CreateTree(source, Dir({{"big.bin", File(large)}}));
    CBackup backup;
    EXPECT_EQ(RunBelowOneMebibyte(backup), CBackup::Result::kEmpty);
    EXPECT_EQ(backup.Problems().notStored, Strings{TooLargeProblem(source + "/big.bin")});
    EXPECT_EQ(Query("SELECT count(*) FROM Files WHERE bid = 2"), (Rows{{"0"}}));
    EXPECT_EQ(StoreListing(), StoreEntries({"x" + large.substr(1)}));
}

#endif

TEST_P(CBackupTest, StoreFolderRemovedBetweenRunsIsMadeAgainAndItsContentStoredAfresh) {
    CreateTree(source, Dir({{"a.txt", File("alpha")}, {"sub", Dir({{"b.txt", File("beta")}})}}));
    for (const bool quick : {false, true}) {
        CBackup first;
        first.QuickCheck(quick);
        Run(first);
        FSDeleteFolder(GetFilesPath());
        CBackup second;
        second.QuickCheck(quick);
        EXPECT_EQ(Run(second), CBackup::Result::kEmpty);
        EXPECT_FALSE(second.Problems().Any()) << quick;
        EXPECT_EQ(StoreListing(), StoreEntries({"alpha", "beta"})) << quick;
        EXPECT_TRUE(
            HasLine("The store folder " + GetFilesPath() + " was missing and was made anew"));
    }
    EXPECT_EQ(Query("SELECT count(*) FROM Files GROUP BY bid ORDER BY bid"),
              (Rows{{"2"}, {"2"}, {"2"}, {"2"}}));
}

#ifndef _WIN32
// Wine makes no links.
TEST_P(CBackupTest, FileSwappedForALinkAfterTheListingIsNotReadThroughTheLink) {
    const std::string secret = env.Path("secret");
    WriteFile(secret, "a file the user never chose");
    ASSERT_EQ(::chmod(secret.c_str(), 0600), 0);
    CreateTree(source, Dir({{"a.txt", File("alpha")}, {"b.txt", File("beta")}}));
    CBackup backup;
    Prepare(backup, source);
    backup.OnStart = [&](int32_t) {
        ::unlink((source + "/b.txt").c_str());
        ASSERT_EQ(::symlink(secret.c_str(), (source + "/b.txt").c_str()), 0);
    };
    EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
    EXPECT_EQ(StoreListing(), StoreEntries({"alpha"}));
    EXPECT_EQ(FileRows(), FileRow(source + "/a.txt", "alpha"));
}
#endif

// ---- What a killed run leaves, and the earlier layout ----

TEST_P(CBackupTest, TemporaryFilesOfAnInterruptedRunAreRemovedByTheNextRun) {
    const std::string store = GetFilesPath();
    const std::string kept = TestSignature("kept");
    CreateTree(
        store,
        Dir({{".unfinished", File("")},
             {kept.substr(0, 2),
              Dir({{kept.substr(2, 2), Dir({{kept + ".QRV", File("kept")},
                                            {"." + kept + ".QRV.1A2B3C4D.tmp", File("part")}})}})},
             {"ef", Dir({{"01", Dir({{".x.QRV.00000000.tmp", File("p")}})}})},
             {".hidden", File("not a temporary file")}}));
    CreateTree(source, Dir({{"a.txt", File("alpha")}}));
    Run();
    EXPECT_TRUE(HasLine("Removed 2 unfinished backup files of an interrupted run"));
    Strings expected = StoreEntries({"alpha", "kept"});
    expected.insert(expected.begin(), {".hidden", "ef/", "ef/01/"});
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(StoreListing(), expected);
}

TEST_P(CBackupTest, TemporaryFilesAreLeftAloneWhenNoRunWasInterrupted) {
    // Without the mark nothing is searched for: such files go at the next Compact.
    const std::string store = GetFilesPath();
    CreateTree(store, Dir({{"ab", Dir({{"cd", Dir({{".x.QRV.00000000.tmp", File("p")}})}})}}));
    CreateTree(source, Dir({{"a.txt", File("alpha")}}));
    Run();
    EXPECT_EQ(CountLines("Removed "), 0u);
    EXPECT_TRUE(Exists(store + Native("/ab/cd/.x.QRV.00000000.tmp")));
    EXPECT_FALSE(Exists(store + Native("/.unfinished")));
}

TEST_P(CBackupTest, LegacyFileMovedIntoTheStoreIsMadePrivate) {
    const std::string content = "stored flat by an earlier version";
    CreateTree(source, Dir({{"doc.txt", File(content)}}));
    const std::string legacy = GetFilesPath() + kPathSeparator + TestSignature(content) + ".QRV";
    WriteFile(legacy, content);
#ifndef _WIN32
    ASSERT_EQ(::chmod(legacy.c_str(), 0644), 0);
#endif
    Run();
    EXPECT_TRUE(IsPrivate(StoreFile(content)));
    EXPECT_EQ(AuditBackupFolder(GetBackupPath()), Strings{});
}

} // namespace

namespace {

#ifndef _WIN32
// A store on a 64 KiB file system mounted for the test; skipped where mounting is not allowed.
class FullDisk : public CBackupTest {
protected:
    void SetUp() override {
        CBackupTest::SetUp();
        if (IsSkipped()) return;
        store = env.Path("tiny");
        CreateTree(store, Dir());
        if (::mount("tmpfs", store.c_str(), "tmpfs", 0, "size=64k,mode=0700") != 0)
            GTEST_SKIP() << "cannot mount a small file system here";
        mounted = true;
    }
    void TearDown() override {
        if (mounted) ::umount(store.c_str());
    }
    CBackup::Result RunInto(CBackup& backup) {
        Prepare(backup, source);
        backup.BackupPath(store);
        return backup.Exec();
    }
    std::string store;
    bool mounted = false;
};

TEST_P(FullDisk, FileLargerThanTheFreeSpaceIsNotCopiedAndTheRunGoesOn) {
    // The source folder's own files come before those of its folders.
    CreateTree(source, Dir({{"big", Dir({{"b.bin", File(PatternContent(1 << 20))}})}}));
    CBackup backup;
    EXPECT_EQ(RunInto(backup), CBackup::Result::kEmpty);
    const Strings log = LogMessages(ReadFile(env.Path("t.log")));
    EXPECT_EQ(std::count(log.begin(), log.end(), "Insufficient disk space on backup drive\r\n"), 1);
    EXPECT_EQ(ListTree(store), Strings{});
    EXPECT_EQ(SqlRows(GetDBPath(), "SELECT count(*) FROM Files"), (std::vector<Strings>{{"0"}}));
    EXPECT_NE(std::find(log.begin(), log.end(), "Total Files : 1\r\n"), log.end());
}

TEST_P(FullDisk, FileMeetingAFullDiskAfterAStoredOneIsStillRecorded) {
    // The stored flag is set once per run: the big file, never written, is recorded against
    // its store name because the small file before it was stored.
    const std::string big = PatternContent(1 << 20);
    CreateTree(source, Dir({{"a.txt", File("small")}, {"big", Dir({{"b.bin", File(big)}})}}));
    CBackup backup;
    EXPECT_EQ(RunInto(backup), CBackup::Result::kEmpty);
    const std::string sig = TestSignature(big);
    const std::string never =
        store + "/" + sig.substr(0, 2) + "/" + sig.substr(2, 2) + "/" + sig + ".QRV";
    EXPECT_EQ(SqlRows(GetDBPath(), "SELECT file, backup FROM Files ORDER BY fid"),
              (std::vector<Strings>{
                  {source + "/a.txt", store + "/" + TestSignature("small").substr(0, 2) + "/" +
                                          TestSignature("small").substr(2, 2) + "/" +
                                          TestSignature("small") + ".QRV"},
                  {source + "/big/b.bin", never}}));
    EXPECT_FALSE(Exists(never));
}
#endif

} // namespace

namespace {
STAGING_WAYS_INSTANTIATE(CBackupTest);
#ifndef _WIN32
STAGING_WAYS_INSTANTIATE(FullDisk);
#endif
} // namespace
