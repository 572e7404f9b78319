#pragma once

// The start-up sequence of the program (process entry).
int Main(int argc, char** argv);
