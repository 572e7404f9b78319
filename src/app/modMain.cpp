#include "app/modMain.h"

#include <iostream>

int Main(int argc, char** argv) {
    (void)argv;
    if (argc <= 1) {
        std::cerr << "The Stashwell window is not built yet; give the words backup or compact.\n";
        return 2;
    }
    return 0;
}
