#include "engine/CSignatureAhead.h"

#include "support/modFSCommon.h"
#include "support/modYield.h"

#include <algorithm>
#include <chrono>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Files up to this size are read into memory before they are staged.
constexpr int64_t kKeepLimit = int64_t{1} << 20;

// The size of a regular file, -1 for anything else (links are not followed).
int64_t RegularSize(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return -1;
    return st.st_size;
}

unsigned WorkersFor(unsigned asked) {
    if (asked > 0) return asked;
    return std::clamp(std::thread::hardware_concurrency(), 1u, 4u);
}

} // namespace

CSignatureAhead::CSignatureAhead(const std::vector<std::string>& files, size_t window,
                                 std::optional<StagingPlan> staging, unsigned workers)
    : m_files(files), m_window(window), m_staging(std::move(staging)) {
    for (unsigned i = WorkersFor(workers); i > 0; --i)
        m_threads.emplace_back([this] { Work(); });
}

CSignatureAhead::~CSignatureAhead() {
    {
        // A worker in the middle of a large file stops at its next read.
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    for (std::thread& thread : m_threads)
        thread.join();
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
        Ahead ahead = PrepareAhead(m_files[index]);
        lock.lock();
        m_ready.emplace(index, std::move(ahead));
        m_changed.notify_all();
    }
}

CSignatureAhead::Ahead CSignatureAhead::PrepareAhead(const std::string& path) {
    if (m_staging) {
        const int64_t size = RegularSize(path);
        if (size > 0 && !m_staging->storedSizes.count(static_cast<uint64_t>(size)))
            return size <= kKeepLimit ? StageSmall(path) : StageLarge(path);
    }
    return {ComputeSignature(path, &m_stop), nullptr};
}

CSignatureAhead::Ahead CSignatureAhead::StageSmall(const std::string& path) {
    std::string bytes;
    Ahead ahead{ComputeSignature(path, &m_stop, {&bytes, -1}), nullptr};
    if (!ahead.content || m_staging->isStored(ahead.content->signature)) return ahead;
    const int fd = m_staging->openAnonymous();
    if (fd < 0) return ahead;
    if (!FSWriteAll(fd, bytes.data(), bytes.size())) {
        ::close(fd); // the run copies it itself, and reports what goes wrong
        return ahead;
    }
    ahead.staged = std::make_unique<CStagedContent>(fd, *ahead.content);
    return ahead;
}

CSignatureAhead::Ahead CSignatureAhead::StageLarge(const std::string& path) {
    const int fd = m_staging->openAnonymous();
    if (fd < 0) return {ComputeSignature(path, &m_stop), nullptr};
    std::optional<SignedContent> content = ComputeSignature(path, &m_stop, {nullptr, fd});
    if (!content) {
        ::close(fd); // a full disk, say: sign it only
        if (m_stop) return {};
        return {ComputeSignature(path, &m_stop), nullptr};
    }
    return {content, std::make_unique<CStagedContent>(fd, *content)};
}

CSignatureAhead::Prepared CSignatureAhead::Prepare(size_t index,
                                                  const std::function<bool()>& cancelled) {
    Ahead ahead;
    {
        std::unique_lock lock(m_mutex);
        m_consumer = index;
        m_ready.erase(m_ready.begin(), m_ready.lower_bound(index)); // files the run skipped
        // Files between the workers' next one and this one were skipped by the run.
        if (index > m_next) m_next = index;
        m_changed.notify_all();
        while (m_ready.find(index) == m_ready.end()) {
            // A worker is on it, or about to be; the window stays responsive meanwhile.
            m_changed.wait_for(lock, std::chrono::milliseconds(20));
            lock.unlock();
            DoEvents();
            lock.lock();
            if (cancelled && cancelled()) {
                // Nothing more is read: the workers stop at their next read.
                m_stop = true;
                m_changed.notify_all();
                return {{}, nullptr, true};
            }
        }
        auto found = m_ready.find(index);
        ahead = std::move(found->second);
        m_ready.erase(found);
        m_consumer = index + 1;
        m_changed.notify_all();
    }
    if (!ahead.content) return {SignFile(m_files[index]), nullptr};
    return {*ahead.content, std::move(ahead.staged)};
}
