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

// What a program run to its end said and answered.
struct ProgramAnswer {
    bool started = false;  // it could be executed at all
    bool timedOut = false; // it ran past the time given and was ended (exitCode is then -1)
    int exitCode = -1;     // its exit status; -1 when it did not end by itself
    std::string output;    // its standard output
    std::string errors;    // its standard error
};

// How long a program run is waited for unless told otherwise.
inline constexpr int kProgramAnswerMs = 30000;

// Runs `program` (looked up on the search path) with `arguments`, gives it `input` on its
// standard input, and waits for it to end, up to `timeoutMs`, after which it is ended. Its
// output and errors are kept whole. It inherits this process's environment.
ProgramAnswer RunAndWait(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input = {}, int timeoutMs = kProgramAnswerMs);

// What went wrong with a run of `command` (the words shown for it) that `answer` tells of, in
// plain words: "<command> could not be started", "... did not answer within N seconds" or
// "... failed (status N): <the first line of its errors>"; "" when it ended with 0.
std::string AnswerProblem(const std::string& command, const ProgramAnswer& answer, int timeoutMs);
