#include "OpenWatch.h"

#ifndef _WIN32

#include "BackupFixture.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <set>
#include <sys/inotify.h>
#include <unistd.h>

OpenWatch::OpenWatch(const std::string& root) : m_fd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    EXPECT_GE(m_fd, 0) << "inotify_init1: errno " << errno;
    Add(root, "");
    for (const std::string& folder : WalkBreadthFirst(root).folders)
        Add(folder, folder.substr(root.size() + 1) + "/");
}

OpenWatch::~OpenWatch() {
    if (m_fd >= 0) ::close(m_fd);
}

std::vector<std::string> OpenWatch::Opened() {
    std::set<std::string> names;
    alignas(inotify_event) char buffer[64 * 1024];
    for (;;) {
        const ssize_t got = ::read(m_fd, buffer, sizeof buffer);
        if (got < 0 && errno == EAGAIN) break;
        if (got <= 0) {
            ADD_FAILURE() << "reading the inotify events failed: errno " << errno;
            break;
        }
        for (ssize_t at = 0; at < got;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            EXPECT_EQ(event->mask & IN_Q_OVERFLOW, 0u) << "inotify events were lost";
            if (event->len > 0 && !(event->mask & IN_ISDIR))
                names.insert(m_folders[event->wd] + event->name);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    return {names.begin(), names.end()};
}

void OpenWatch::Add(const std::string& folder, const std::string& relative) {
    const int wd = ::inotify_add_watch(m_fd, folder.c_str(), IN_OPEN | IN_ACCESS);
    EXPECT_GE(wd, 0) << "inotify_add_watch " << folder << ": errno " << errno;
    m_folders[wd] = relative;
}

#endif
