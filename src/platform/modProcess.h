#pragma once

// Starting other programs, detached from this process: the desktop's opener for documents and
// web addresses, the system-information tool. Nothing is left to reap, and the started program
// outlives this one.

#include <string>
#include <vector>

// Starts `program` (looked up on the search path) with `arguments`; true when it could be
// executed. With `answerMs` above 0, a program that ends with a failure status within that time
// counts as not started (an opener that found no program for a document says so at once); one
// still running then counts as started.
bool StartDetached(const std::string& program, const std::vector<std::string>& arguments,
                   int answerMs = 0);
