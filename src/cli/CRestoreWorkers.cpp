#include "cli/CRestoreWorkers.h"

#include "platform/CWorkerProcesses.h"

#include <cstdint>
#include <cstring>

namespace {

void Put(std::string& record, uint32_t value) {
    record.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void PutText(std::string& record, const std::string& text) {
    Put(record, static_cast<uint32_t>(text.size()));
    record += text;
}

// Reads whole records from the front of `buffer` into `outcomes`, calling `taken` with the index
// of each.
void TakeRecords(std::string& buffer, std::vector<RestoreOutcome>& outcomes,
                 const std::function<void(size_t)>& taken) {
    size_t at = 0;
    const auto get = [&](size_t& from, uint32_t& value) {
        if (buffer.size() < from + sizeof value) return false;
        std::memcpy(&value, buffer.data() + from, sizeof value);
        from += sizeof value;
        return true;
    };
    const auto getText = [&](size_t& from, std::string& text) {
        uint32_t length = 0;
        if (!get(from, length) || buffer.size() < from + length) return false;
        text.assign(buffer, from, length);
        from += length;
        return true;
    };
    while (true) {
        size_t from = at;
        uint32_t index = 0, flags = 0;
        RestoreOutcome outcome;
        if (!get(from, index) || !get(from, flags) || !getText(from, outcome.target) ||
            !getText(from, outcome.problem))
            break;
        outcome.restored = flags & 1;
        outcome.verified = flags & 2;
        if (index < outcomes.size()) outcomes[index] = std::move(outcome);
        at = from;
        if (index < outcomes.size()) taken(index);
    }
    buffer.erase(0, at);
}

// The worker `worker` of `workers`: restores its runs of files and reports each outcome.
void Work(const CWorkerProcesses::Send& send, unsigned worker, unsigned workers, size_t count,
          const std::function<RestoreOutcome(size_t)>& restore) {
    std::string records;
    for (size_t i = 0; i < count; ++i) {
        if ((i / CRestoreWorkers::kRun) % workers != worker) continue;
        const RestoreOutcome outcome = restore(i);
        Put(records, static_cast<uint32_t>(i));
        Put(records, (outcome.restored ? 1u : 0u) | (outcome.verified ? 2u : 0u));
        PutText(records, outcome.target);
        PutText(records, outcome.problem);
        // Each outcome goes out at once, so a worker that dies loses at most the file it
        // was restoring.
        if (!send(records)) return;
        records.clear();
    }
}

} // namespace

std::vector<RestoreOutcome>
CRestoreWorkers::Run(size_t count, const std::function<RestoreOutcome(size_t)>& restore,
                     const std::function<void(size_t, size_t)>& progress) {
    std::vector<RestoreOutcome> outcomes(count);
    for (RestoreOutcome& outcome : outcomes)
        outcome.problem = "the worker that restored it stopped unexpectedly";
    const unsigned workers = count < 2 * kRun ? 1 : m_workers;
    CWorkerProcesses processes;
    if (workers <= 1 || !processes.Start(workers, [&](unsigned worker, const auto& send) {
            Work(send, worker, workers, count, restore);
        })) {
        // Few files, or not every worker could start (those that did are stopped; Windows
        // has no workers at all): this process restores every file itself.
        for (size_t i = 0; i < count; ++i) {
            outcomes[i] = restore(i);
            if (progress) progress(i + 1, i);
        }
        return outcomes;
    }
    std::vector<std::string> buffers(workers);
    size_t done = 0;
    processes.Collect([&](unsigned worker, const char* data, size_t size) {
        buffers[worker].append(data, size);
        TakeRecords(buffers[worker], outcomes, [&](size_t index) {
            ++done;
            if (progress) progress(done, index);
        });
    });
    return outcomes;
}
