// Starting a program detached: it gets exactly the arguments it was given, a program that fails
// at once within the answer time counts as not started, one still running as started. Running
// a program to its end: its input given, its output, errors and status kept whole (a megabyte of
// each at once without either pipe stopping the other), one that is not there not started, one
// that runs past its time ended, one that reads none of its input no harm to the caller.

#include "TestSupport.h"
#include "platform/modProcess.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#ifdef _WIN32
#include "platform/CFile.h"
#include "platform/modWin32Text.h"

#include <shellapi.h>
#endif

namespace {

// Each argument on a line of its own.
std::string Lines(const std::vector<std::string>& arguments) {
    std::string lines;
    for (const std::string& argument : arguments)
        lines += argument + "\n";
    return lines;
}

const std::vector<std::string> kOddArguments = {"plain",
                                                "two words",
                                                "",
                                                "q\"uote",
                                                "back\\slash",
                                                "trailing\\",
                                                "trailing two\\\\",
                                                "\\\"quoted\\\\\" x",
                                                "tab\there",
                                                "Gr\xc3\xbc\xc3\x9f\x65 \xe6\x97\xa5\xe6\x9c\xac"};

#ifndef _WIN32

TEST(Process, AnAnswerWithinTheTimeTellsWhetherItStarted) {
    EXPECT_TRUE(StartDetached("true", {}, 5000));
    EXPECT_FALSE(StartDetached("false", {}, 5000));
    EXPECT_FALSE(StartDetached("stashwell-no-such-program", {}));
    EXPECT_TRUE(StartDetached("sleep", {"2"}, 100));
}

TEST(Process, TheProgramGetsExactlyItsArguments) {
    ScopedTestEnv env;
    const std::string out = env.Path("arguments");
    std::vector<std::string> arguments = {"-c", "printf '%s\\n' \"$@\" > \"$0\"", out};
    arguments.insert(arguments.end(), kOddArguments.begin(), kOddArguments.end());
    ASSERT_TRUE(StartDetached("sh", arguments, 10000));
    EXPECT_EQ(ReadFile(out), Lines(kOddArguments));
}

TEST(Process, ARunToItsEndKeepsItsOutputErrorsAndStatus) {
    const ProgramAnswer answer =
        RunAndWait("sh", {"-c", "cat; echo \"$0\" >&2; exit 3", "two words"}, "in\nput");
    EXPECT_TRUE(answer.started);
    EXPECT_FALSE(answer.timedOut);
    EXPECT_EQ(answer.exitCode, 3);
    EXPECT_EQ(answer.output, "in\nput");
    EXPECT_EQ(answer.errors, "two words\n");
}

TEST(Process, AMegabyteOfOutputAndOfErrorsAtOnceAreKeptWhole) {
    const std::string input(1 << 20, 'i');
    const ProgramAnswer answer =
        RunAndWait("sh", {"-c", "cat; head -c 1048576 /dev/zero >&2; exit 0"}, input);
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.output, input);
    EXPECT_EQ(answer.errors, std::string(1 << 20, '\0'));
}

TEST(Process, AProgramThatIsNotThereIsNotStarted) {
    const ProgramAnswer answer = RunAndWait("stashwell-no-such-program", {});
    EXPECT_FALSE(answer.started);
    EXPECT_EQ(answer.exitCode, -1);
}

TEST(Process, AProgramPastItsTimeIsEnded) {
    const ProgramAnswer answer = RunAndWait("sh", {"-c", "echo started; exec sleep 30"}, {}, 300);
    EXPECT_TRUE(answer.started);
    EXPECT_TRUE(answer.timedOut);
    EXPECT_EQ(answer.exitCode, -1);
    EXPECT_EQ(answer.output, "started\n");
}

TEST(Process, AProgramThatReadsNoneOfItsInputEndsTheRunAsUsual) {
    const ProgramAnswer answer = RunAndWait("sh", {"-c", "exit 0"}, std::string(4 << 20, 'x'));
    EXPECT_TRUE(answer.started);
    EXPECT_EQ(answer.exitCode, 0);
}

#else

// This test program is also the program that the tests start: run with "--helper" it does what
// the words after that say before any test runs, and ends.
//   --helper exit N             ends with status N
//   --helper pause MS           ends with status 0 after MS milliseconds
//   --helper arguments FILE...  writes each argument after FILE to FILE, one a line
//   --helper echo N             copies its input to its output, writes its argument count and
//                               a megabyte of zeros after the input's size to its errors, and
//                               ends with status N
const bool kHelperRun = [] {
    int count = 0;
    LPWSTR* wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    if (!wide || count < 4 || std::wstring(wide[1]) != L"--helper") return false;
    std::vector<std::string> words;
    for (int i = 2; i < count; ++i)
        words.push_back(Narrow(wide[i]));
    if (words[0] == "exit") ::ExitProcess(static_cast<UINT>(std::stoi(words[1])));
    if (words[0] == "echo") {
        std::string input;
        char buffer[4096];
        DWORD got = 0;
        while (::ReadFile(::GetStdHandle(STD_INPUT_HANDLE), buffer, sizeof buffer, &got, nullptr) &&
               got > 0)
            input.append(buffer, got);
        DWORD wrote = 0;
        ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), input.data(),
                    static_cast<DWORD>(input.size()), &wrote, nullptr);
        std::string errors = std::to_string(input.size()) + "\n";
        if (input.size() >= (1u << 20)) errors += std::string(1 << 20, '\0');
        ::WriteFile(::GetStdHandle(STD_ERROR_HANDLE), errors.data(),
                    static_cast<DWORD>(errors.size()), &wrote, nullptr);
        ::ExitProcess(static_cast<UINT>(std::stoi(words[1])));
    }
    if (words[0] == "pause") {
        ::Sleep(static_cast<DWORD>(std::stoi(words[1])));
        ::ExitProcess(0);
    }
    CFile file;
    const bool written = file.Open(words[1], CFile::Mode::kReplace) &&
                         file.WriteAll(Lines({words.begin() + 2, words.end()}));
    file.Close();
    ::ExitProcess(written ? 0 : 1);
}();

std::string ThisProgram() {
    std::wstring path(32768, L'\0');
    path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return Narrow(path);
}

TEST(Process, AnAnswerWithinTheTimeTellsWhetherItStarted) {
    EXPECT_FALSE(kHelperRun);
    EXPECT_TRUE(StartDetached(ThisProgram(), {"--helper", "exit", "0"}, 10000));
    EXPECT_FALSE(StartDetached(ThisProgram(), {"--helper", "exit", "3"}, 10000));
    EXPECT_FALSE(StartDetached("stashwell-no-such-program", {}));
    EXPECT_TRUE(StartDetached(ThisProgram(), {"--helper", "pause", "1500"}, 100));
    EXPECT_TRUE(StartDetached("cmd.exe", {"/c", "exit 0"}, 10000));
}

// The command line is split back into the same arguments (CommandLineToArgvW's rules).
TEST(Process, TheProgramGetsExactlyItsArguments) {
    ScopedTestEnv env;
    const std::string out = env.Path("arguments");
    std::vector<std::string> arguments = {"--helper", "arguments", out};
    arguments.insert(arguments.end(), kOddArguments.begin(), kOddArguments.end());
    ASSERT_TRUE(StartDetached(ThisProgram(), arguments, 10000));
    EXPECT_EQ(ReadFile(out), Lines(kOddArguments));
}

TEST(Process, ARunToItsEndKeepsItsOutputErrorsAndStatus) {
    const ProgramAnswer answer = RunAndWait(ThisProgram(), {"--helper", "echo", "3"}, "in\nput");
    EXPECT_TRUE(answer.started);
    EXPECT_FALSE(answer.timedOut);
    EXPECT_EQ(answer.exitCode, 3);
    EXPECT_EQ(answer.output, "in\nput");
    EXPECT_EQ(answer.errors, "6\n");
}

TEST(Process, AMegabyteOfOutputAndOfErrorsAtOnceAreKeptWhole) {
    const std::string input(1 << 20, 'i');
    const ProgramAnswer answer = RunAndWait(ThisProgram(), {"--helper", "echo", "0"}, input);
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.output, input);
    EXPECT_EQ(answer.errors, "1048576\n" + std::string(1 << 20, '\0'));
}

TEST(Process, AProgramThatIsNotThereIsNotStarted) {
    const ProgramAnswer answer = RunAndWait("stashwell-no-such-program", {});
    EXPECT_FALSE(answer.started);
    EXPECT_EQ(answer.exitCode, -1);
}

TEST(Process, AProgramPastItsTimeIsEnded) {
    const ProgramAnswer answer = RunAndWait(ThisProgram(), {"--helper", "pause", "30000"}, {}, 300);
    EXPECT_TRUE(answer.started);
    EXPECT_TRUE(answer.timedOut);
    EXPECT_EQ(answer.exitCode, -1);
}

#endif

} // namespace
