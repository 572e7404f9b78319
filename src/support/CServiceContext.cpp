#include "support/CServiceContext.h"

#include <cstdlib>
#include <iostream>

namespace {
std::atomic<CServiceContext*> g_current{nullptr};
std::atomic<std::size_t> g_partCount{0};
} // namespace

CServiceContext::~CServiceContext() {
    EndParts();
}

void CServiceContext::EndParts() {
    // A part that asks for another while it ends makes it anew here; that one ends too.
    for (;;) {
        std::shared_ptr<void> part;
        {
            std::lock_guard lock(m_mutex);
            if (m_made.empty()) break;
            m_parts[m_made.back().first].store(nullptr, std::memory_order_release);
            part = std::move(m_made.back().second);
            m_made.pop_back();
        }
        part.reset();
    }
}

CServiceContext& CServiceContext::Current() {
    static CServiceContext process;
    CServiceContext* current = g_current.load(std::memory_order_acquire);
    return current ? *current : process;
}

std::size_t CServiceContext::NewPartIndex() {
    const std::size_t index = g_partCount.fetch_add(1);
    if (index >= kMaxParts) {
        // A fixed number of kinds of part, known when the program is built: more is a mistake.
        std::cerr << "CServiceContext: more than " << kMaxParts << " kinds of part" << std::endl;
        std::abort();
    }
    return index;
}

void* CServiceContext::Make(std::size_t index, std::shared_ptr<void> (*make)()) {
    std::lock_guard lock(m_mutex);
    if (void* part = m_parts[index].load(std::memory_order_acquire)) return part;
    std::shared_ptr<void> made = make();
    void* part = made.get();
    // Made by its own constructor's request meanwhile: that one stands.
    if (void* already = m_parts[index].load(std::memory_order_acquire)) return already;
    m_made.emplace_back(index, std::move(made));
    m_parts[index].store(part, std::memory_order_release);
    return part;
}

CScopedServiceContext::CScopedServiceContext()
    : m_previous(g_current.exchange(&m_context, std::memory_order_acq_rel)) {}

CScopedServiceContext::~CScopedServiceContext() {
    // Its parts end while it is still current: one that logs as it ends logs to its own logger.
    m_context.EndParts();
    g_current.store(m_previous, std::memory_order_release);
}
