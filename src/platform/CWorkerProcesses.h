#pragma once

// Copies of this process that each run one piece of work and send bytes back: fork on Linux,
// so that each copy starts with everything this process holds (its error trap, services and
// catalogue connection, which belong to one thread). Windows has no such copies: Start
// answers false there and the caller does the work itself.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

class CWorkerProcesses {
public:
    // Sends bytes to the process that started the copy; false when they could not go.
    using Send = std::function<bool(const std::string& bytes)>;

    CWorkerProcesses() = default;
    ~CWorkerProcesses();
    CWorkerProcesses(const CWorkerProcesses&) = delete;
    CWorkerProcesses& operator=(const CWorkerProcesses&) = delete;

    // Starts `count` copies; copy k runs `work(k, send)` and ends with status 0 (1 when a send
    // failed). False when not every copy could start: those that did are stopped.
    bool Start(unsigned count, const std::function<void(unsigned worker, const Send& send)>& work);
    // Hands what the copies send to `received`, in pieces as they come, until every copy has
    // ended, then waits for them.
    void
    Collect(const std::function<void(unsigned worker, const char* data, size_t size)>& received);

private:
    void StopAll();

    std::vector<int> m_pipes;
    std::vector<int> m_pids;
};
