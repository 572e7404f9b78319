#pragma once

// Restores many files at once in several processes (on Linux; Windows restores in one). A restore
// of many small files waits on the file system for every file it creates; a few restoring side by
// side keep the disk and every core busy. Processes rather than threads, because each restore runs
// the shared core's error trap, services and catalogue connection, which belong to one thread: a
// forked worker has its own of each. The files are dealt out in runs of 64 neighbours, so a worker
// mostly meets the folder of its last file again; each worker reports every file's outcome through
// a pipe. A worker that dies leaves its unreported files "not restored".

#include "app/modRestore.h"

#include <cstddef>
#include <functional>
#include <vector>

class CRestoreWorkers {
public:
    // `workers` processes; 1 or fewer files than two runs restore in this process.
    explicit CRestoreWorkers(unsigned workers) : m_workers(workers) {}

    // Calls `restore(i)` once for every i below `count`, in a worker, and answers the outcomes
    // in the order of i. `progress(done, i)` is called in this process as each outcome comes
    // in: how many came so far, and which.
    std::vector<RestoreOutcome> Run(size_t count,
                                    const std::function<RestoreOutcome(size_t)>& restore,
                                    const std::function<void(size_t done, size_t i)>& progress);

    static constexpr size_t kRun = 64;

private:
    unsigned m_workers;
};
