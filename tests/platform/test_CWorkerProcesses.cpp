// Copies of this process that each run one piece of work and send bytes back; Windows has none.

#include "platform/CWorkerProcesses.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

#ifndef _WIN32
TEST(WorkerProcesses, EachCopySendsItsBytesBack) {
    CWorkerProcesses workers;
    ASSERT_TRUE(workers.Start(3, [](unsigned worker, const CWorkerProcesses::Send& send) {
        send("worker " + std::to_string(worker));
        send(std::string(100000, static_cast<char>('a' + worker)));
    }));
    std::map<unsigned, std::string> received;
    workers.Collect([&](unsigned worker, const char* data, size_t size) {
        received[worker].append(data, size);
    });
    ASSERT_EQ(received.size(), 3u);
    for (unsigned worker = 0; worker < 3; ++worker)
        EXPECT_EQ(received[worker], "worker " + std::to_string(worker) +
                                        std::string(100000, static_cast<char>('a' + worker)));
}
#else
TEST(WorkerProcesses, WindowsStartsNoCopyAndTheCallerWorksItself) {
    CWorkerProcesses workers;
    bool ran = false;
    EXPECT_FALSE(workers.Start(2, [&](unsigned, const CWorkerProcesses::Send&) { ran = true; }));
    EXPECT_FALSE(ran);
    bool received = false;
    workers.Collect([&](unsigned, const char*, size_t) { received = true; });
    EXPECT_FALSE(received);
}
#endif

} // namespace
