#include "platform/modProcess.h"

#include "platform/modWin32Text.h"

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
