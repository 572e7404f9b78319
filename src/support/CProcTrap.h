#pragma once

// The error-trap convention as a scope object. On entry it pushes the procedure's name; on
// every way out it pops it, unless KeepOnStack() was called for an exit that must not pop.
//
//     CProcTrap trap("FSCopyFile");
//     try {
//         trap.Check();        // a push beyond the stack depth is this procedure's error
//         ...risky work...
//     } catch (...) {
//         trap.Handle();       // hands the error to HandleError
//         ...the failure path...
//     }

#include "support/CRuntimeError.h"

#include <exception>
#include <string>

class CProcTrap {
public:
    explicit CProcTrap(const std::string& procedure);
    ~CProcTrap();
    CProcTrap(const CProcTrap&) = delete;
    CProcTrap& operator=(const CProcTrap&) = delete;

    void Check();
    // Call inside a catch block: the exception being handled goes to HandleError.
    void Handle();
    void KeepOnStack() { m_pop = false; }

private:
    std::exception_ptr m_pushError;
    bool m_pop = true;
};

// The exception being handled, as a run-time error (other exceptions become 7 or 51).
CRuntimeError CurrentRuntimeError();

// Sets the error handler's current operation.
void Operation(const std::string& text);

// Runs `body` under a trap named `procedure`; on an error reports it and returns `fallback`.
template <class T, class Body> T Trapped(const std::string& procedure, T fallback, Body&& body) {
    CProcTrap trap(procedure);
    try {
        trap.Check();
        return body();
    } catch (...) {
        trap.Handle();
        return fallback;
    }
}
