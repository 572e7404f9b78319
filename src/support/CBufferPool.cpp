#include "support/CBufferPool.h"

#include <utility>

CBufferPool::Lease::~Lease() {
    if (m_buffer) m_pool->GiveBack(std::move(m_buffer));
}

CBufferPool::Lease CBufferPool::Take() {
    {
        std::lock_guard lock(m_mutex);
        if (!m_free.empty()) {
            std::unique_ptr<char[]> buffer = std::move(m_free.back());
            m_free.pop_back();
            return Lease(*this, std::move(buffer));
        }
    }
    return Lease(*this, std::unique_ptr<char[]>(new char[m_size]));
}

void CBufferPool::GiveBack(std::unique_ptr<char[]> buffer) {
    std::lock_guard lock(m_mutex);
    if (m_free.size() < kKept) m_free.push_back(std::move(buffer));
}
