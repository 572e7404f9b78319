// The program's entry: hands the command line to the start-up sequence, and with it the window
// runner, where the program is built with its window. No exception leaves it: Main catches its
// own, and this catches what could still come (memory that runs out on the way in or out).
#include "app/modMain.h"

#include <exception>
#include <iostream>

#ifdef STASHWELL_WITH_WINDOW
#include "ui/CDBusNotifier.h"
#include "ui/modWindow.h"
#endif
#ifdef STASHWELL_WITH_WIN32_WINDOW
#include "winui/CWinTrayNotifier.h"
#include "winui/CWinWindowRunner.h"
#endif

int main(int argc, char** argv) {
    try {
#ifdef STASHWELL_WITH_WINDOW
        // Builds nothing until Main asks for the window; it outlives Main's window.
        CWindowRunner window;
        // An unattended run that went wrong says so on the desktop, with or without the window.
        static CDBusNotifier notifier;
        SetNotifierService(&notifier);
        return Main(argc, argv, &window);
#elif defined(STASHWELL_WITH_WIN32_WINDOW)
        CWinWindowRunner window;
        // An unattended run that went wrong says so in the notification area.
        static CWinTrayNotifier notifier;
        SetNotifierService(&notifier);
        return Main(argc, argv, &window);
#else
        return Main(argc, argv);
#endif
    } catch (const std::exception& e) {
        std::cerr << "Error: Stashwell stopped at an error: " << e.what() << std::endl;
    } catch (...) {
        std::cerr << "Error: Stashwell stopped at an error" << std::endl;
    }
    return kExitCannotRun;
}
