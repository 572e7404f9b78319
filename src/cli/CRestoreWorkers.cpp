#include "cli/CRestoreWorkers.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void Put(std::string& record, uint32_t value) {
    record.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void PutText(std::string& record, const std::string& text) {
    Put(record, static_cast<uint32_t>(text.size()));
    record += text;
}

bool WriteAll(int fd, const std::string& data) {
    for (size_t done = 0; done < data.size();) {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// Reads whole records from the front of `buffer` into `outcomes`; answers how many.
size_t TakeRecords(std::string& buffer, std::vector<RestoreOutcome>& outcomes) {
    size_t at = 0, taken = 0;
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
        ++taken;
    }
    buffer.erase(0, at);
    return taken;
}

// The worker `worker` of `workers`: restores its runs of files and reports each outcome.
[[noreturn]] void Work(int fd, unsigned worker, unsigned workers, size_t count,
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
        if (!WriteAll(fd, records)) ::_exit(1);
        records.clear();
    }
    ::_exit(WriteAll(fd, records) ? 0 : 1);
}

} // namespace

std::vector<RestoreOutcome>
CRestoreWorkers::Run(size_t count, const std::function<RestoreOutcome(size_t)>& restore,
                     const std::function<void(size_t)>& progress) {
    std::vector<RestoreOutcome> outcomes(count);
    for (RestoreOutcome& outcome : outcomes)
        outcome.problem = "the worker that restored it stopped unexpectedly";
    const unsigned workers = count < 2 * kRun ? 1 : m_workers;
    std::vector<pollfd> pipes;
    std::vector<pid_t> pids;
    for (unsigned worker = 0; worker < workers && workers > 1; ++worker) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) break;
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::close(ends[0]);
            Work(ends[1], worker, workers, count, restore);
        }
        ::close(ends[1]);
        if (pid < 0) {
            ::close(ends[0]);
            break;
        }
        pids.push_back(pid);
        pipes.push_back({ends[0], POLLIN, 0});
    }
    if (workers <= 1 || pids.size() != workers) {
        // Few files, or not every worker could start (those that did are stopped): this
        // process restores every file itself.
        for (const pid_t pid : pids)
            ::kill(pid, SIGKILL);
        for (const pid_t pid : pids)
            ::waitpid(pid, nullptr, 0);
        for (const pollfd& pipe : pipes)
            ::close(pipe.fd);
        for (size_t i = 0; i < count; ++i) {
            outcomes[i] = restore(i);
            if (progress) progress(i + 1);
        }
        return outcomes;
    }
    std::vector<std::string> buffers(pipes.size());
    size_t done = 0, open = pipes.size();
    while (open > 0) {
        if (::poll(pipes.data(), pipes.size(), -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (size_t k = 0; k < pipes.size(); ++k) {
            if (pipes[k].fd < 0 || pipes[k].revents == 0) continue;
            char chunk[65536];
            const ssize_t n = ::read(pipes[k].fd, chunk, sizeof chunk);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                ::close(pipes[k].fd);
                pipes[k].fd = -1;
                --open;
                continue;
            }
            buffers[k].append(chunk, static_cast<size_t>(n));
            done += TakeRecords(buffers[k], outcomes);
            if (progress) progress(done);
        }
    }
    for (const pid_t pid : pids)
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    return outcomes;
}
