// The command-line companion's entry: hands its words to QrvMain, with stdout and stderr.
#include "cli/modQrvMain.h"

#include <iostream>

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    const std::vector<std::string> words(argv + 1, argv + argc);
    const int status = QrvMain(words, std::cout, std::cerr);
    std::cout.flush();
    return status;
}
