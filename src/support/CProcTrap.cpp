#include "support/CProcTrap.h"

#include "support/modServices.h"

#include <new>
#include <utility>

CProcTrap::CProcTrap(const std::string& procedure) {
    try {
        ErrHandler().Push(procedure);
    } catch (...) {
        m_pushError = std::current_exception();
    }
}

CProcTrap::~CProcTrap() {
    if (m_pop) ErrHandler().Pop();
}

void CProcTrap::Check() {
    if (m_pushError) std::rethrow_exception(std::exchange(m_pushError, nullptr));
}

void CProcTrap::Handle() {
    HandleCurrentError();
}

void HandleCurrentError() {
    ErrHandler().HandleError(CurrentRuntimeError());
}

CRuntimeError CurrentRuntimeError() {
    try {
        throw;
    } catch (const CRuntimeError& e) {
        return e;
    } catch (const std::bad_alloc&) {
        return CRuntimeError(err::kOutOfMemory, ErrorDescription(err::kOutOfMemory));
    } catch (const std::exception& e) {
        return CRuntimeError(err::kInternal, e.what());
    } catch (...) {
        return CRuntimeError(err::kInternal, ErrorDescription(err::kInternal));
    }
}

void Operation(std::string_view text) {
    ErrHandler().CurrentOperation(text);
}
