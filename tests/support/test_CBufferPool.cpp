// The buffer pool: a lease holds a buffer of the pool's size that no other lease holds; a buffer
// given back is lent again; at most a few are kept; threads lease and give back at once.

#include "support/CBufferPool.h"

#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

namespace {

TEST(BufferPool, ALeaseHoldsABufferOfThePoolsSizeThatNoOtherLeaseHolds) {
    CBufferPool pool(4096);
    EXPECT_EQ(pool.Size(), 4096u);
    const CBufferPool::Lease first = pool.Take();
    const CBufferPool::Lease second = pool.Take();
    ASSERT_NE(first.Data(), nullptr);
    ASSERT_NE(second.Data(), nullptr);
    EXPECT_NE(first.Data(), second.Data());
    std::memset(first.Data(), 'a', 4096);
    std::memset(second.Data(), 'b', 4096);
    EXPECT_EQ(first.Data()[4095], 'a');
}

TEST(BufferPool, ABufferGivenBackIsLentAgain) {
    CBufferPool pool(16);
    const char* given = nullptr;
    {
        const CBufferPool::Lease lease = pool.Take();
        given = lease.Data();
    }
    EXPECT_EQ(pool.Take().Data(), given);
}

TEST(BufferPool, AtMostEightAreKept) {
    CBufferPool pool(16);
    std::set<const char*> first;
    {
        std::vector<CBufferPool::Lease> leases;
        for (int i = 0; i < 10; ++i)
            leases.push_back(pool.Take());
        for (const auto& lease : leases)
            first.insert(lease.Data());
    }
    // The ten come back and eight are kept: the next eight leases get those eight.
    std::vector<CBufferPool::Lease> again;
    std::set<const char*> lent;
    for (int i = 0; i < 8; ++i) {
        again.push_back(pool.Take());
        lent.insert(again.back().Data());
    }
    EXPECT_EQ(lent.size(), 8u);
    for (const char* data : lent)
        EXPECT_EQ(first.count(data), 1u);
}

TEST(BufferPool, ThreadsLeaseAndGiveBackAtOnce) {
    CBufferPool pool(64);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&pool, t] {
            for (int i = 0; i < 1000; ++i) {
                const CBufferPool::Lease lease = pool.Take();
                std::memset(lease.Data(), t, 64);
                for (int k = 0; k < 64; ++k)
                    ASSERT_EQ(lease.Data()[k], static_cast<char>(t));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
