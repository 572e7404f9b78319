#include "platform/modTerminal.h"

#include "platform/modWin32.h"

bool StderrIsTerminal() {
    // Only a console answers GetConsoleMode; _isatty would also say yes for the NUL device,
    // which is a character device but no terminal.
    DWORD mode = 0;
    const HANDLE stderrHandle = ::GetStdHandle(STD_ERROR_HANDLE);
    return stderrHandle != nullptr && stderrHandle != INVALID_HANDLE_VALUE &&
           ::GetConsoleMode(stderrHandle, &mode);
}
