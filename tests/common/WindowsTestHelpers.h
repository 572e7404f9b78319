#pragma once

// Windows only: what the tests need of Windows' own calls, the one place of the tests that
// includes <windows.h> (in its .cpp): the environment as the program started next sees it,
// files held open with no sharing (Windows' way to make a file unreadable), the security that
// makes a file private, and programs started with CreateProcessW, their output read through
// pipes and ended with TerminateProcess.

#ifdef _WIN32

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// Sets the environment variable `name` of this process and of the programs it starts (the C
// runtime's copy and Windows' own); `value` empty removes it.
void SetWindowsEnvironment(const std::string& name, const std::string& value);
// The variable `name` as Windows holds it, "" when it is not set.
std::string WindowsEnvironment(const std::string& name);

// A file held open with no sharing at all, as a program that locks a file holds it: while it
// lives, every other open of the file for reading, writing or deleting fails with a sharing
// violation, while its attributes and its folder's listing can still be read.
class ExclusiveHold {
public:
    explicit ExclusiveHold(const std::string& path);
    ~ExclusiveHold();
    ExclusiveHold(const ExclusiveHold&) = delete;
    ExclusiveHold& operator=(const ExclusiveHold&) = delete;
    // Whether the file is held; false when it could not be opened.
    bool Ok() const;
    void Release();

private:
    void* m_handle;
};

// Adds the attribute bits `attributes` (0x2 hidden, 0x4 system, ...) to the file or folder at
// `path`; false when they could not be set.
bool AddWindowsAttributes(const std::string& path, uint32_t attributes);
// Sets the last access and last write times of the file at `path`, in nanoseconds since 1970.
bool SetWindowsFileTimes(const std::string& path, int64_t accessNs, int64_t writeNs);

// A new folder named `prefix` and a number in the folder "tmp" of a fixed drive other than the
// one of `beside` (under Wine, Z:\tmp on the Linux root); "" when there is none.
std::string FolderOnAnotherDrive(const std::string& beside, const std::string& prefix);

// This process's id.
uint32_t WindowsProcessId();

// The path of this program's own file.
std::string WindowsProgramFile();

// "" when only the user, the system and the administrators may reach the file or folder at
// `path`; otherwise what lets others in.
std::string WhoElseMayReach(const std::string& path);

// A path of the machine that built the tests ("/work/build/qrv.exe") as Windows names it: under
// Wine the root of the Linux file system is the drive Z:. A Windows path is kept as it is.
std::string WindowsPathOfBuildFile(const std::string& path);

// A program started with CreateProcessW, its standard output and error read through pipes.
class WindowsProcess {
public:
    // Starts `program` with `arguments` in `folder` ("" for the test's own), with the test's
    // environment changed by `environment` (an empty value removes a variable); Started() tells
    // whether it could start.
    WindowsProcess(const std::string& program, const std::vector<std::string>& arguments,
                   const std::vector<std::pair<std::string, std::string>>& environment,
                   const std::string& folder);
    ~WindowsProcess();
    WindowsProcess(const WindowsProcess&) = delete;
    WindowsProcess& operator=(const WindowsProcess&) = delete;

    bool Started() const;
    // Why it could not start.
    const std::string& StartError() const { return m_startError; }
    uint32_t Id() const { return m_id; }
    // Adds what the program wrote so far to `out` and `err`, without waiting.
    void Drain(std::string& out, std::string& err);
    // Whether the program has ended, and then its exit code.
    bool Ended(uint32_t& exitCode) const;
    // Ends the program at once with TerminateProcess; false when it had ended by itself.
    bool Terminate();

private:
    void* m_process = nullptr;
    void* m_out = nullptr;
    void* m_err = nullptr;
    uint32_t m_id = 0;
    std::string m_startError;
};

// How a Windows command line quotes `argument` so that the started program reads it back as it
// is (the rules of CommandLineToArgvW and the C runtime).
std::wstring QuotedArgument(const std::wstring& argument);

#endif
