#pragma once

// What the program holds once per process and a test stands in for: the error handler and the
// logger, the services that ask the user or open the desktop, the hooks, clocks and copy ways
// that tests replace. Each module keeps its share in a struct of its own, a part, made on first
// use in the current context; the process has one context for its whole life, and a test makes
// its own (CScopedServiceContext), so that whatever the test set is gone with it.
//
// A part is found without a lock once it is made (worker threads read them in hot loops); it
// stays at its address until its context ends.

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

class CServiceContext {
public:
    CServiceContext() = default;
    ~CServiceContext();
    CServiceContext(const CServiceContext&) = delete;
    CServiceContext& operator=(const CServiceContext&) = delete;

    // The context in use: the innermost scoped one, else the process's own.
    static CServiceContext& Current();

    // This context's T, value-initialised when first asked for.
    template <class T> T& Part() {
        static const std::size_t index = NewPartIndex();
        void* part = m_parts[index].load(std::memory_order_acquire);
        if (!part) part = Make(index, [] { return std::shared_ptr<void>(std::make_shared<T>()); });
        return *static_cast<T*>(part);
    }

private:
    friend class CScopedServiceContext;
    static constexpr std::size_t kMaxParts = 32;

    static std::size_t NewPartIndex();
    void EndParts();
    void* Make(std::size_t index, std::shared_ptr<void> (*make)());

    std::array<std::atomic<void*>, kMaxParts> m_parts{};
    // A part's constructor may ask for another part.
    std::recursive_mutex m_mutex;
    // In the order made; ended in the reverse order.
    std::vector<std::pair<std::size_t, std::shared_ptr<void>>> m_made;
};

// The current context's T.
template <class T> T& ServicePart() {
    return CServiceContext::Current().Part<T>();
}

// A fresh context, current from construction to destruction, after which the one before it is
// current again. Tests make one each; contexts nest.
class CScopedServiceContext {
public:
    CScopedServiceContext();
    ~CScopedServiceContext();
    CScopedServiceContext(const CScopedServiceContext&) = delete;
    CScopedServiceContext& operator=(const CScopedServiceContext&) = delete;

private:
    CServiceContext m_context;
    CServiceContext* m_previous;
};
