#pragma once

// Which files a program opens or reads below a folder, seen through inotify: the tests of the
// quick check prove with it that an unchanged file is never read. Linux only: Windows tells no
// one of a file's opening (its tests hold such files with no sharing instead, see
// WindowsTestHelpers.h).

#ifndef _WIN32

#include <map>
#include <string>
#include <vector>

// The files opened or read below a folder while this object lives.
class OpenWatch {
public:
    // Watches `root` and every folder below it.
    explicit OpenWatch(const std::string& root);
    ~OpenWatch();
    OpenWatch(const OpenWatch&) = delete;
    OpenWatch& operator=(const OpenWatch&) = delete;

    // The files (not folders) opened or read so far, relative to the root, sorted, each once.
    std::vector<std::string> Opened();

private:
    void Add(const std::string& folder, const std::string& relative);

    int m_fd;
    std::map<int, std::string> m_folders;
};

#endif
