// The real program with a display (the offscreen platform, or a real X server where Xvfb is
// installed): words on the command line run unattended with the window present and end by
// themselves; the manual lies next to the program. A display that cannot be opened (a stale
// DISPLAY or WAYLAND_DISPLAY, a refused authorisation, a platform that fails while Qt builds
// the application) never costs a run: the words run headless, exactly as without a display,
// after one stderr line naming the display.

#include "BackupFixture.h"
#include "StoreAudit.h"
#include "TestProgram.h"
#include "app/modPaths.h"

#include <csignal>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

const ProgramEnv kOffscreen{{"QT_QPA_PLATFORM", "offscreen"}};
const char* const kXvfb = "/usr/bin/Xvfb";
const std::string kNeedsADisplay =
    "Stashwell needs a display to open its window. Without one, run it unattended with the "
    "words backup and/or compact, for example: stashwell backup compact\n";

std::string GoesOnWithoutAWindow(const std::string& display) {
    return "Stashwell could not open the display " + display +
           "; the run goes on without a window\n";
}

// The lines of a run with the test's folder as <root>, and the times and the rate, which
// depend on the machine's speed, masked.
Lines Masked(Lines lines, const std::string& root) {
    static const std::regex time(R"(\d\d:\d\d:\d\d)");
    static const std::regex rate(R"(Throughput  : \d+(\.\d+)? MB/s)");
    for (std::string& line : lines) {
        for (size_t at = line.find(root); at != std::string::npos; at = line.find(root, at))
            line.replace(at, root.size(), "<root>");
        line = std::regex_replace(line, time, "hh:mm:ss");
        line = std::regex_replace(line, rate, "Throughput  : <rate> MB/s");
    }
    return lines;
}

// What one backup of the same two files leaves, in a backup folder of its own.
struct BackupRun {
    ProgramRun run;
    Lines log;   // the day's log, masked
    Lines files; // the Files rows, masked
    Lines store; // the store's entries
};

// Backs up the tree a.txt "alpha", sub/b.txt "beta" with the words `words` and the
// environment that `env` makes for the test's folder.
BackupRun BackUpTree(const std::function<ProgramEnv(const ScopedTestEnv&)>& env,
                     const std::vector<std::string>& words = {"backup"}) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}, {"sub", Dir({{"b.txt", File("beta")}})}}));
    f.AddSource(src);
    BackupRun done;
    done.run = RunStashwell(words, 120, env(f.env));
    done.log = Masked(LogMessages(f.TodaysLog()), f.env.Root());
    done.files = Masked(f.Rows("SELECT file FROM Files ORDER BY fid"), f.env.Root());
    done.store = ListTree(f.backup + "/Files");
    return done;
}

// The same backup as a scheduler without a display starts it.
BackupRun Headless() {
    return BackUpTree([](const ScopedTestEnv&) { return ProgramEnv{}; });
}

// A run with a display that could not be opened did exactly what the headless run does.
void ExpectTheHeadlessRun(const BackupRun& run) {
    const BackupRun headless = Headless();
    ASSERT_EQ(headless.run.exitCode, 0) << headless.run.err;
    EXPECT_EQ(run.run.signal, 0);
    EXPECT_EQ(run.run.exitCode, 0) << run.run.err;
    EXPECT_EQ(run.run.out, "");
    EXPECT_EQ(run.files, (Lines{"<root>/src/a.txt", "<root>/src/sub/b.txt"}));
    EXPECT_EQ(run.store, StoreEntries({"alpha", "beta"}));
    EXPECT_EQ(run.log, headless.log);
    EXPECT_EQ(run.files, headless.files);
}

// A real X server on a display number of its own choosing (Xvfb -displayfd), for the object's
// life; with `auth`, it lets in only clients that hold that authority file's cookie.
class ScopedXvfb {
public:
    explicit ScopedXvfb(const std::string& auth = {}) {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) return;
        m_pid = ::fork();
        if (m_pid == 0) {
            if (fds[1] == 3)
                ::fcntl(3, F_SETFD, 0);
            else
                ::dup2(fds[1], 3);
            const int null = ::open("/dev/null", O_WRONLY);
            ::dup2(null, 1);
            ::dup2(null, 2);
            std::vector<const char*> argv = {"Xvfb", "-displayfd", "3", "-nolisten", "tcp"};
            if (!auth.empty()) argv.insert(argv.end(), {"-auth", auth.c_str()});
            argv.push_back(nullptr);
            ::execv(kXvfb, const_cast<char**>(argv.data()));
            ::_exit(127);
        }
        ::close(fds[1]);
        // The server writes its display number once it takes clients; end of file if it died.
        std::string number;
        char c = 0;
        while (::read(fds[0], &c, 1) == 1 && c != '\n')
            number += c;
        ::close(fds[0]);
        if (!number.empty()) m_display = ":" + number;
    }
    ~ScopedXvfb() {
        if (m_pid <= 0) return;
        ::kill(m_pid, SIGTERM);
        ::waitpid(m_pid, nullptr, 0);
    }
    ScopedXvfb(const ScopedXvfb&) = delete;
    ScopedXvfb& operator=(const ScopedXvfb&) = delete;

    // ":N", or "" when the server did not start.
    const std::string& Display() const { return m_display; }

private:
    pid_t m_pid = -1;
    std::string m_display;
};

// An X authority file holding one MIT-MAGIC-COOKIE-1 for every display, or none at all.
void WriteXAuthority(const std::string& path, const std::string& cookie) {
    const auto field = [](const std::string& text) {
        return std::string{static_cast<char>(text.size() >> 8), static_cast<char>(text.size())} +
               text;
    };
    WriteFile(path, cookie.empty() ? std::string()
                                   : std::string("\xff\xff", 2) + field("") + field("") +
                                         field("MIT-MAGIC-COOKIE-1") + field(cookie));
}

TEST(WindowProgram, WordsWithADisplayRunUnattendedWithTheWindowPresentAndEnd) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}, {"sub", Dir({{"b.txt", File("beta")}})}}));
    f.AddSource(src);
    const ProgramRun run = RunStashwell({"backup", "compact"}, 120, kOffscreen);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(f.Rows("SELECT file FROM Files ORDER BY fid"),
              (Lines{src + "/a.txt", src + "/sub/b.txt"}));
    EXPECT_EQ(AuditBackupFolder(f.backup), Lines{});
    const Lines log = LogMessages(f.TodaysLog());
    ASSERT_GE(log.size(), 3u);
    EXPECT_EQ(log[log.size() - 2], "Unattended backup complete\r\n");
    EXPECT_EQ(log.back(), "Exiting QRV\r\n");
    EXPECT_NE(std::find(log.begin(), log.end(), "Compacting database\r\n"), log.end());
}

TEST(WindowProgram, WordsWithADisplayAndAnUnreadyDriveEndWithStatusOne) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", env.Path("unplugged"));
    const ProgramRun run = RunStashwell({"backup"}, 60, kOffscreen);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_FALSE(Exists(env.Path("unplugged")));
}

TEST(StaleDisplay, X11DisplayThatIsGoneRunsTheWordsHeadlessAsWithoutADisplay) {
    if (Exists("/tmp/.X11-unix/X97")) GTEST_SKIP() << "an X server listens on :97 here";
    const BackupRun run = BackUpTree([](const ScopedTestEnv&) {
        return ProgramEnv{{"DISPLAY", ":97"}};
    });
    EXPECT_EQ(run.run.err, GoesOnWithoutAWindow(":97"));
    ExpectTheHeadlessRun(run);
}

TEST(StaleDisplay, WaylandDisplayThatIsGoneRunsTheWordsHeadlessAsWithoutADisplay) {
    for (const std::string session : {"", "wayland"}) {
        // No compositor listens in the test's own runtime folder.
        const BackupRun run = BackUpTree([&](const ScopedTestEnv& env) {
            return ProgramEnv{{"WAYLAND_DISPLAY", "wayland-stale"},
                              {"XDG_RUNTIME_DIR", env.Root()},
                              {"XDG_SESSION_TYPE", session}};
        });
        EXPECT_EQ(run.run.err, GoesOnWithoutAWindow("wayland-stale")) << session;
        ExpectTheHeadlessRun(run);
    }
}

TEST(StaleDisplay, GoneDisplayWithoutWordsSaysItNeedsADisplayAndExitsTwo) {
    if (Exists("/tmp/.X11-unix/X97")) GTEST_SKIP() << "an X server listens on :97 here";
    BackupFixture f;
    for (const ProgramEnv& env :
         {ProgramEnv{{"DISPLAY", ":97"}},
          ProgramEnv{{"WAYLAND_DISPLAY", "wayland-stale"}, {"XDG_RUNTIME_DIR", f.env.Root()}}}) {
        const ProgramRun run = RunStashwell({}, 60, env);
        EXPECT_EQ(run.signal, 0);
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.err, "Stashwell could not open the display " + env.front().second + "\n" +
                               kNeedsADisplay);
    }
}

TEST(StaleDisplay, DisplayThatFailsWhileQtBuildsTheApplicationRunsTheWordsHeadless) {
    const BackupRun run = BackUpTree([](const ScopedTestEnv&) {
        return ProgramEnv{{"QT_QPA_PLATFORM", "stashwell-broken"},
                          {"QT_QPA_PLATFORM_PLUGIN_PATH", BROKEN_PLATFORM_DIR}};
    });
    // Qt's own lines say why; the last one is the program's.
    EXPECT_TRUE(run.run.err.ends_with(GoesOnWithoutAWindow("stashwell-broken"))) << run.run.err;
    ExpectTheHeadlessRun(run);
}

TEST(StaleDisplay, DisplayThatFailsWhileQtBuildsTheApplicationWithoutWordsExitsTwo) {
    BackupFixture f;
    const ProgramRun run = RunStashwell({}, 60,
                                        {{"QT_QPA_PLATFORM", "stashwell-broken"},
                                         {"QT_QPA_PLATFORM_PLUGIN_PATH", BROKEN_PLATFORM_DIR}});
    EXPECT_EQ(run.signal, 0);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.ends_with("Stashwell could not open the display stashwell-broken\n" +
                                  kNeedsADisplay))
        << run.err;
}

TEST(RealDisplay, X11DisplayOpensTheWindowAndRunsTheWordsAsWithoutADisplay) {
    if (!Exists(kXvfb)) GTEST_SKIP() << "Xvfb is not installed (scripts/install-deps.sh does)";
    ScopedXvfb server;
    ASSERT_NE(server.Display(), "");
    const BackupRun run = BackUpTree([&](const ScopedTestEnv& env) {
        return ProgramEnv{{"DISPLAY", server.Display()}, {"XDG_RUNTIME_DIR", env.Root()}};
    });
    EXPECT_EQ(run.run.err, "");
    ExpectTheHeadlessRun(run);
}

TEST(RealDisplay, X11DisplayThatRefusesTheAuthorisationRunsTheWordsHeadless) {
    if (!Exists(kXvfb)) GTEST_SKIP() << "Xvfb is not installed (scripts/install-deps.sh does)";
    ScopedTestEnv keys;
    WriteXAuthority(keys.Path("server.auth"), "0123456789abcdef");
    WriteXAuthority(keys.Path("client.auth"), "");
    ScopedXvfb server(keys.Path("server.auth"));
    ASSERT_NE(server.Display(), "");
    const BackupRun run = BackUpTree([&](const ScopedTestEnv& env) {
        return ProgramEnv{{"DISPLAY", server.Display()},
                          {"XAUTHORITY", keys.Path("client.auth")},
                          {"XDG_RUNTIME_DIR", env.Root()}};
    });
    // The X library writes the server's reason first.
    EXPECT_TRUE(run.run.err.ends_with(GoesOnWithoutAWindow(server.Display()))) << run.run.err;
    ExpectTheHeadlessRun(run);
}

TEST(WindowProgram, TheManualLiesNextToTheProgram) {
    const std::string program = STASHWELL_BIN;
    const std::string manual = program.substr(0, program.rfind('/')) + "/QRV Manual.pdf";
    ASSERT_TRUE(Exists(manual));
    EXPECT_EQ(ReadFile(manual).substr(0, 5), "%PDF-");
}

} // namespace
