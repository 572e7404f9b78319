#include "engine/CSignatureAhead.h"

#include "support/modYield.h"

#include <chrono>
#include <sys/stat.h>

namespace {

// The size of a regular file, -1 for anything else (links are not followed).
int64_t RegularSize(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return -1;
    return st.st_size;
}

} // namespace

CSignatureAhead::CSignatureAhead(const std::vector<std::string>& files, size_t window,
                                 std::optional<Sizes> storedSizes)
    : m_files(files), m_window(window), m_sizes(std::move(storedSizes)),
      m_thread([this] { Work(); }) {}

CSignatureAhead::~CSignatureAhead() {
    {
        // A worker in the middle of a large file stops at its next read.
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

bool CSignatureAhead::NewForCertain(int64_t size) {
    return m_sizes && size > 0 && m_sizes->insert(static_cast<uint64_t>(size)).second;
}

void CSignatureAhead::Work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [&] {
            return m_stop || (m_next < m_files.size() && m_next < m_consumer + m_window);
        });
        if (m_stop) return;
        const size_t index = m_next++;
        lock.unlock();
        const int64_t size = m_sizes ? RegularSize(m_files[index]) : -1;
        lock.lock();
        Ahead ahead;
        ahead.leftForCopy = NewForCertain(size);
        lock.unlock();
        if (!ahead.leftForCopy) ahead.signature = ComputeSignature(m_files[index], &m_stop);
        lock.lock();
        m_ready.emplace(index, std::move(ahead));
        m_changed.notify_all();
    }
}

std::optional<SignedContent> CSignatureAhead::Signature(size_t index) {
    Ahead ahead;
    {
        std::unique_lock lock(m_mutex);
        m_consumer = index;
        m_ready.erase(m_ready.begin(), m_ready.lower_bound(index)); // files the run skipped
        m_changed.notify_all();
        while (m_ready.find(index) == m_ready.end()) {
            if (index >= m_next) {
                // The worker has not reached this file: take it here and let the worker go on
                // after it.
                m_next = index + 1;
                m_changed.notify_all();
                const bool leftForCopy = NewForCertain(m_sizes ? RegularSize(m_files[index]) : -1);
                lock.unlock();
                if (leftForCopy) return std::nullopt;
                return SignFile(m_files[index]);
            }
            // The worker is hashing it; the window stays responsive meanwhile.
            m_changed.wait_for(lock, std::chrono::milliseconds(20));
            lock.unlock();
            DoEvents();
            lock.lock();
        }
        auto found = m_ready.find(index);
        ahead = std::move(found->second);
        m_ready.erase(found);
        m_consumer = index + 1;
        m_changed.notify_all();
    }
    if (ahead.leftForCopy) return std::nullopt;
    return ahead.signature ? *ahead.signature : SignFile(m_files[index]);
}
