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
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

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

// Hands the exception being handled to HandleError (inside a catch block).
void HandleCurrentError();

// Sets the error handler's current operation (a run names several for every file it meets: a
// literal is taken without making a string of it first).
void Operation(std::string_view text);

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

namespace trapdetail {

template <class Handler, class Args, size_t... I>
constexpr bool InvocableWith(std::index_sequence<I...>) {
    return std::is_invocable_v<Handler&, std::tuple_element_t<I, Args>...>;
}

// Calls `handler` with as many of the leading `args` as it takes, at most N.
template <size_t N, class Handler, class Args> void CallWithLeading(Handler& handler, Args& args) {
    if constexpr (N == 0)
        handler();
    else if constexpr (InvocableWith<Handler, Args>(std::make_index_sequence<N>{}))
        [&]<size_t... I>(std::index_sequence<I...>) {
            handler(std::get<I>(args)...);
        }
    (std::make_index_sequence<N>{});
    else CallWithLeading<N - 1>(handler, args);
}

} // namespace trapdetail

// A handler of a window (a click, a key, an event) under the error trap: the callable it
// answers runs `handler` with as many of the leading arguments it is given as `handler` takes;
// an error that nothing inside caught is reported by the error handler (its report file and
// box) and the window goes on. One wrapper, so no handler is left without a trap. `procedure`
// is pushed as the trap's name; an empty one pushes nothing, for a handler whose body is a
// procedure with its own trap of the same name (its errors are reported under the names it
// pushes, as they always were).
template <class Handler> auto TrappedHandler(std::string procedure, Handler handler) {
    return [procedure = std::move(procedure), handler = std::move(handler)](auto&&... args) {
        std::optional<CProcTrap> trap;
        if (!procedure.empty()) trap.emplace(procedure);
        try {
            if (trap) trap->Check();
            auto given = std::forward_as_tuple(std::forward<decltype(args)>(args)...);
            trapdetail::CallWithLeading<sizeof...(args)>(handler, given);
        } catch (...) {
            HandleCurrentError();
        }
    };
}
