// The program's entry: hands the command line to the start-up sequence, and with it the window
// runner, where the program is built with its window.
#include "app/modMain.h"

#ifdef STASHWELL_WITH_WINDOW
#include "ui/modWindow.h"
#endif

int main(int argc, char** argv) {
#ifdef STASHWELL_WITH_WINDOW
    return Main(argc, argv, RunWindow);
#else
    return Main(argc, argv);
#endif
}
