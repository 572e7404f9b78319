#include "platform/modProcess.h"

#include "platform/modWin32Text.h"

#include <algorithm>

// The program gets a command line that CommandLineToArgvW (and every C runtime) splits back
// into exactly `program` and `arguments`; CreateProcessW looks the program up (its own folder,
// the current folder, the system folders, then PATH, adding .exe to a name without one). It has
// no console and no handle of this process, and it leaves this process's job when the job allows
// it, so it outlives this one. Windows keeps nothing of an ended process to reap once its
// handles are closed.

namespace {

// One argument as CommandLineToArgvW reads it back: quoted when it is empty or holds a blank,
// a tab or a quote; inside the quotes a quote is written \" and backslashes are doubled where
// they stand before a quote (the closing one included).
void AppendArgument(std::wstring& line, const std::wstring& argument) {
    line += L' ';
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
        line += argument;
        return;
    }
    line += L'"';
    for (size_t i = 0;; ++i) {
        size_t backslashes = 0;
        for (; i < argument.size() && argument[i] == L'\\'; ++i)
            ++backslashes;
        if (i == argument.size()) {
            line.append(backslashes * 2, L'\\');
            break;
        }
        if (argument[i] == L'"') {
            line.append(backslashes * 2 + 1, L'\\');
        } else {
            line.append(backslashes, L'\\');
        }
        line += argument[i];
    }
    line += L'"';
}

} // namespace

bool StartDetached(const std::string& program, const std::vector<std::string>& arguments,
                   int answerMs) {
    // The program's own name is read up to the closing quote, backslashes as they are; a file
    // name holds no quote.
    std::wstring line = L"\"" + Wide(program) + L"\"";
    for (const std::string& argument : arguments)
        AppendArgument(line, Wide(argument));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    const DWORD flags = DETACHED_PROCESS | CREATE_NEW_PROCESS_GROUP;
    bool created =
        ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE,
                         flags | CREATE_BREAKAWAY_FROM_JOB, nullptr, nullptr, &startup, &started);
    // A job that does not allow leaving it refuses the whole call.
    if (!created && ::GetLastError() == ERROR_ACCESS_DENIED)
        created = ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, flags, nullptr,
                                   nullptr, &startup, &started);
    if (!created) return false;
    bool answered = true;
    if (answerMs > 0 &&
        ::WaitForSingleObject(started.hProcess, static_cast<DWORD>(answerMs)) == WAIT_OBJECT_0) {
        DWORD status = 1;
        answered = ::GetExitCodeProcess(started.hProcess, &status) && status == 0;
    }
    ::CloseHandle(started.hThread);
    ::CloseHandle(started.hProcess);
    return answered;
}

namespace {

// A handle closed when it goes.
struct Handle {
    HANDLE value = nullptr;
    void Close() {
        if (value) ::CloseHandle(value);
        value = nullptr;
    }
    ~Handle() { Close(); }
};

// A pipe whose end `inherited` (0 the reading end, 1 the writing end) the program gets.
bool OpenPipe(Handle& read, Handle& write, int inherited) {
    SECURITY_ATTRIBUTES attributes{sizeof attributes, nullptr, TRUE};
    if (!::CreatePipe(&read.value, &write.value, &attributes, 0)) return false;
    return ::SetHandleInformation(inherited == 0 ? write.value : read.value, HANDLE_FLAG_INHERIT,
                                  0) != 0;
}

// Reads a pipe to its end on a thread of its own (made with CreateThread, whose handle can
// have its read cancelled).
struct PipeReader {
    HANDLE pipe;
    std::string* into;
    Handle thread;

    static DWORD WINAPI Run(LPVOID self) {
        const auto* reader = static_cast<PipeReader*>(self);
        char buffer[4096];
        DWORD got = 0;
        while (::ReadFile(reader->pipe, buffer, sizeof buffer, &got, nullptr) && got > 0)
            reader->into->append(buffer, got);
        return 0;
    }
    bool Start() {
        thread.value = ::CreateThread(nullptr, 0, &PipeReader::Run, this, 0, nullptr);
        return thread.value != nullptr;
    }
};

} // namespace

// The program gets three pipes; two threads read its output and errors while this one writes
// its input, so that no pipe fills while another is waited on. Past the time it is terminated.
ProgramAnswer RunAndWait(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input, int timeoutMs) {
    ProgramAnswer answer;
    std::wstring line = L"\"" + Wide(program) + L"\"";
    for (const std::string& argument : arguments)
        AppendArgument(line, Wide(argument));
    Handle inRead, inWrite, outRead, outWrite, errRead, errWrite;
    if (!OpenPipe(inRead, inWrite, 0) || !OpenPipe(outRead, outWrite, 1) ||
        !OpenPipe(errRead, errWrite, 1))
        return answer;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = inRead.value;
    startup.hStdOutput = outWrite.value;
    startup.hStdError = errWrite.value;
    PROCESS_INFORMATION started{};
    if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                          nullptr, &startup, &started))
        return answer;
    answer.started = true;
    Handle process{started.hProcess};
    ::CloseHandle(started.hThread);
    inRead.Close();
    outWrite.Close();
    errWrite.Close();
    PipeReader readers[2] = {{outRead.value, &answer.output, {}},
                             {errRead.value, &answer.errors, {}}};
    if (!readers[0].Start() || !readers[1].Start()) {
        ::TerminateProcess(process.value, 1);
        outRead.Close();
        errRead.Close();
    }
    for (size_t written = 0; written < input.size();) {
        DWORD wrote = 0;
        const DWORD want = static_cast<DWORD>(std::min<size_t>(input.size() - written, 65536));
        if (!::WriteFile(inWrite.value, input.data() + written, want, &wrote, nullptr)) break;
        written += wrote;
    }
    inWrite.Close();
    if (::WaitForSingleObject(process.value, static_cast<DWORD>(timeoutMs)) != WAIT_OBJECT_0) {
        ::TerminateProcess(process.value, 1);
        ::WaitForSingleObject(process.value, INFINITE);
        answer.timedOut = true;
    }
    // The pipes end once the program and whatever it started with them are gone; a child that
    // keeps them open is given two seconds, then its reads are cancelled.
    for (PipeReader& reader : readers) {
        if (!reader.thread.value) continue;
        if (::WaitForSingleObject(reader.thread.value, 2000) != WAIT_OBJECT_0) {
            ::CancelSynchronousIo(reader.thread.value);
            ::WaitForSingleObject(reader.thread.value, INFINITE);
        }
    }
    DWORD status = 0;
    if (!answer.timedOut && ::GetExitCodeProcess(process.value, &status))
        answer.exitCode = static_cast<int>(status);
    return answer;
}
