#include "platform/CWorkerProcesses.h"

// Windows has no fork: a new process starts from the program's beginning, without what this
// one holds, so no copy is started and the caller does the work itself.

CWorkerProcesses::~CWorkerProcesses() {
    StopAll();
}

bool CWorkerProcesses::Start(unsigned, const std::function<void(unsigned, const Send&)>&) {
    return false;
}

void CWorkerProcesses::Collect(const std::function<void(unsigned, const char*, size_t)>&) {}

void CWorkerProcesses::StopAll() {
    m_pids.clear();
    m_pipes.clear();
}
