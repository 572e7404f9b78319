// The command-line companion's entry: hands its words to QrvMain, with stdout and stderr. No
// exception leaves it (QrvMain catches its own; this catches what comes before or after).
#include "cli/modQrvExit.h"
#include "cli/modQrvMain.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    try {
        std::ios::sync_with_stdio(false);
        const std::vector<std::string> words(argv + 1, argv + argc);
        const int status = QrvMain(words, std::cout, std::cerr);
        std::cout.flush();
        return status;
    } catch (const std::exception& e) {
        std::cerr << "qrv: stopped at an error: " << e.what() << std::endl;
    } catch (...) {
        std::cerr << "qrv: stopped at an error" << std::endl;
    }
    return kQrvProblems;
}
