#include "platform/CWorkerProcesses.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
bool WriteAll(int fd, const std::string& data) {
    for (size_t done = 0; done < data.size();) {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}
} // namespace

CWorkerProcesses::~CWorkerProcesses() {
    StopAll();
}

bool CWorkerProcesses::Start(unsigned count,
                             const std::function<void(unsigned, const Send&)>& work) {
    for (unsigned worker = 0; worker < count; ++worker) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) break;
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::close(ends[0]);
            bool sent = true;
            work(worker, [&](const std::string& bytes) {
                sent = sent && WriteAll(ends[1], bytes);
                return sent;
            });
            ::_exit(sent ? 0 : 1);
        }
        ::close(ends[1]);
        if (pid < 0) {
            ::close(ends[0]);
            break;
        }
        m_pids.push_back(pid);
        m_pipes.push_back(ends[0]);
    }
    if (m_pids.size() == count) return true;
    StopAll();
    return false;
}

void CWorkerProcesses::Collect(const std::function<void(unsigned, const char*, size_t)>& received) {
    std::vector<pollfd> pipes;
    for (const int fd : m_pipes)
        pipes.push_back({fd, POLLIN, 0});
    size_t open = pipes.size();
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
            received(static_cast<unsigned>(k), chunk, static_cast<size_t>(n));
        }
    }
    for (const pollfd& pipe : pipes)
        if (pipe.fd >= 0) ::close(pipe.fd);
    m_pipes.clear();
    for (const int pid : m_pids)
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    m_pids.clear();
}

void CWorkerProcesses::StopAll() {
    for (const int pid : m_pids)
        ::kill(pid, SIGKILL);
    for (const int pid : m_pids)
        ::waitpid(pid, nullptr, 0);
    for (const int fd : m_pipes)
        ::close(fd);
    m_pids.clear();
    m_pipes.clear();
}
