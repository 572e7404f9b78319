#include "platform/modTerminal.h"

#include <unistd.h>

bool StderrIsTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}
