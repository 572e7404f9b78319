#include "engine/CSignatureAhead.h"

#include "support/modYield.h"

#include <chrono>

CSignatureAhead::CSignatureAhead(const std::vector<std::string>& files, size_t window)
    : m_files(files), m_window(window), m_thread([this] { Work(); }) {}

CSignatureAhead::~CSignatureAhead() {
    {
        // A worker in the middle of a large file stops at its next read.
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
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
        std::optional<SignedContent> signature = ComputeSignature(m_files[index], &m_stop);
        lock.lock();
        m_ready.emplace(index, std::move(signature));
        m_changed.notify_all();
    }
}

SignedContent CSignatureAhead::Signature(size_t index) {
    std::optional<SignedContent> signature;
    {
        std::unique_lock lock(m_mutex);
        m_consumer = index;
        m_ready.erase(m_ready.begin(), m_ready.lower_bound(index)); // files the run skipped
        m_changed.notify_all();
        while (m_ready.find(index) == m_ready.end()) {
            if (index >= m_next) {
                // The worker has not reached this file: hash it here and let the worker go on
                // after it.
                m_next = index + 1;
                m_changed.notify_all();
                lock.unlock();
                return SignFile(m_files[index]);
            }
            // The worker is hashing it; the window stays responsive meanwhile.
            m_changed.wait_for(lock, std::chrono::milliseconds(20));
            lock.unlock();
            DoEvents();
            lock.lock();
        }
        auto found = m_ready.find(index);
        signature = std::move(found->second);
        m_ready.erase(found);
        m_consumer = index + 1;
        m_changed.notify_all();
    }
    return signature ? *signature : SignFile(m_files[index]);
}
