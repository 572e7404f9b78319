#pragma once

// Buffers of one size lent out and taken back, for the reads and copies that every file of a
// run goes through: a fresh megabyte per file would cost a map and an unmap each. Any thread may
// lease one; a lease gives its buffer back when it ends, and the pool keeps a few of those for
// the next lease. (A buffer per thread, thread_local, would do the same, but the Windows build
// frees such buffers as each thread ends in a way that, under Wine, now and then corrupts the
// heap of a worker thread.)

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

class CBufferPool {
public:
    explicit CBufferPool(std::size_t size) : m_size(size) {}
    CBufferPool(const CBufferPool&) = delete;
    CBufferPool& operator=(const CBufferPool&) = delete;

    class Lease {
    public:
        Lease(Lease&& other) noexcept = default;
        Lease& operator=(Lease&&) = delete;
        Lease(const Lease&) = delete;
        ~Lease();
        char* Data() const { return m_buffer.get(); }

    private:
        friend class CBufferPool;
        Lease(CBufferPool& pool, std::unique_ptr<char[]> buffer)
            : m_pool(&pool), m_buffer(std::move(buffer)) {}
        CBufferPool* m_pool;
        std::unique_ptr<char[]> m_buffer;
    };

    // A buffer of the pool's size, uninitialised.
    Lease Take();
    std::size_t Size() const { return m_size; }

private:
    // As many as the workers of a run and the run itself use at once.
    static constexpr std::size_t kKept = 8;
    void GiveBack(std::unique_ptr<char[]> buffer);

    const std::size_t m_size;
    std::mutex m_mutex;
    std::vector<std::unique_ptr<char[]>> m_free;
};
