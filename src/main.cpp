// The program's entry: hands the command line to the start-up sequence.
#include "app/modMain.h"

int main(int argc, char** argv) {
    return Main(argc, argv);
}
