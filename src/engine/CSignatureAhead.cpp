#include "engine/CSignatureAhead.h"

#include "support/modFSCommon.h"
#include "support/modYield.h"

#include <algorithm>
#include <chrono>

namespace {

unsigned WorkersFor(unsigned asked) {
    if (asked > 0) return asked;
    return std::clamp(std::thread::hardware_concurrency(), 1u, 4u);
}

} // namespace

CSignatureAhead::CSignatureAhead(const CFileList& files, size_t window,
                                 std::optional<StagingPlan> staging, unsigned workers,
                                 const CQuickCheck* quick)
    : m_files(files), m_window(window), m_staging(std::move(staging)), m_quick(quick) {
    for (unsigned i = WorkersFor(workers); i > 0; --i)
        m_threads.emplace_back([this] { Work(); });
}

CSignatureAhead::~CSignatureAhead() {
    {
        // A worker in the middle of a large file stops at its next read or copied piece.
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_workToDo.notify_all();
    for (std::thread& thread : m_threads)
        thread.join();
}

void CSignatureAhead::Work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        ++m_idleWorkers;
        m_workToDo.wait(lock, [&] {
            return m_stop || (m_next < m_files.size() && m_next < m_consumer + m_window &&
                              m_stagedAhead < kMostStagedAhead);
        });
        --m_idleWorkers;
        if (m_stop) return;
        const size_t index = m_next++;
        lock.unlock();
        Ahead ahead = PrepareAhead(m_files[index], m_files.Stamp(index));
        lock.lock();
        if (ahead.staged) ++m_stagedAhead;
        m_ready.emplace(index, std::move(ahead));
        // Only the file the run waits for wakes it: the others would wake it for nothing.
        if (m_runWaits && index == m_consumer) m_oneReady.notify_one();
    }
}

CSignatureAhead::Ahead CSignatureAhead::PrepareAhead(const std::string& path,
                                                     const FileStamp& listed) {
    Ahead ahead = SignAhead(path, listed);
    if (!ahead.staged) LookInStore(ahead);
    return ahead;
}

void CSignatureAhead::LookInStore(Ahead& ahead) const {
    if (!m_staging || !m_staging->storedSize || !ahead.content || m_stop) return;
    if (const double size = m_staging->storedSize(ahead.content->signature); size >= 0)
        ahead.storedSize = size;
}

CSignatureAhead::Ahead CSignatureAhead::SignAhead(const std::string& path,
                                                  const FileStamp& listed) {
    FileStamp now;
    if (m_quick) {
        // The file as the walk found it (or as it is, when the walk kept no stamp): a file the
        // quick check vouches for is looked at once in the whole run.
        now = listed.Known() ? listed : FSStampOf(path);
        if (std::optional<SignedContent> kept = m_quick->Find(path, now)) {
            m_read.fetch_add(static_cast<uint64_t>(std::max<int64_t>(now.size, 0)),
                             std::memory_order_relaxed);
            return {kept, nullptr, {}, std::nullopt, now, true, std::nullopt};
        }
    }
    // A file to be read is looked at afresh: the walk may have found it long ago, and it may
    // have changed or gone since.
    if (m_quick ? listed.Known() : m_staging.has_value()) now = FSStampOf(path);
    const auto size = static_cast<uint64_t>(std::max<int64_t>(now.size, 0));
    if (m_staging && size > 0 && m_staging->loadSizes)
        std::call_once(m_sizesOnce,
                       [this] { m_sizesKnown = m_staging->loadSizes(m_staging->storedSizes); });
    if (m_staging && size > 0 && m_sizesKnown && !m_staging->storedSizes.count(size) &&
        (!m_staging->hasRoomFor || m_staging->hasRoomFor(size)))
        return Stage(path, now);
    Ahead ahead;
    SignByReading(ahead, path, now, &m_read);
    return ahead;
}

void CSignatureAhead::SignByReading(Ahead& ahead, const std::string& path, const FileStamp& before,
                                    std::atomic<uint64_t>* read) {
    ahead.content = ComputeSignature(path, &m_stop, m_quick ? &ahead.stamp : nullptr, read);
    // Without the quick check nothing asks whether the file changed while it was read: the run
    // gets the stamp taken just before (for the file's size), and need not look again.
    if (!m_quick) ahead.stamp = before;
}

CSignatureAhead::Ahead CSignatureAhead::Stage(const std::string& path, const FileStamp& before) {
    CStore::AheadCopy copy = m_staging->stage(path, &m_stop, &m_read);
    if (m_stop) return {};
    Ahead ahead;
    if (copy.staged) {
        ahead.content = copy.staged->Content();
        ahead.staged = std::move(copy.staged);
        ahead.copyLines = std::move(copy.lines);
        // The copy read the file by its name: for the quick check the stamp holds only if
        // nothing changed it; without it, it is the one taken before (see SignAhead).
        if (!m_quick || FSStampOf(path) == before) ahead.stamp = before;
        return ahead;
    }
    // Signed all the same, so that the run sees whether the content is stored already.
    if (copy.tried) ahead.failedCopy = FailedCopy{copy.outcome, std::move(copy.lines)};
    SignByReading(ahead, path, before, nullptr);
    return ahead;
}

CSignatureAhead::Prepared CSignatureAhead::Prepare(size_t index,
                                                   const std::function<bool()>& waiting) {
    Ahead ahead;
    {
        std::unique_lock lock(m_mutex);
        m_consumer = index;
        // Files the run skipped.
        for (auto skipped = m_ready.begin(); skipped != m_ready.end() && skipped->first < index;
             skipped = m_ready.erase(skipped))
            if (skipped->second.staged) --m_stagedAhead;
        // Files between the workers' next one and this one were skipped by the run.
        if (index > m_next) m_next = index;
        // A file that no worker has taken yet wakes them; otherwise they are woken below.
        if (m_idleWorkers > 0 && m_next <= index) m_workToDo.notify_all();
        while (m_ready.find(index) == m_ready.end()) {
            // A worker is on it, or about to be; the window stays responsive meanwhile.
            m_runWaits = true;
            m_oneReady.wait_for(lock, std::chrono::milliseconds(20));
            m_runWaits = false;
            if (m_ready.find(index) != m_ready.end()) break;
            lock.unlock();
            DoEvents();
            lock.lock();
            if (waiting && waiting()) {
                // Nothing more is read: the workers stop at their next read or copied piece.
                m_stop = true;
                m_workToDo.notify_all();
                Prepared stopped;
                stopped.cancelled = true;
                return stopped;
            }
        }
        auto found = m_ready.find(index);
        ahead = std::move(found->second);
        m_ready.erase(found);
        m_consumer = index + 1;
        const bool staged = ahead.staged != nullptr;
        if (staged) --m_stagedAhead;
        // Idle workers are woken once half the window is free, and then fill it: one wake-up
        // per several files (or per staged copy taken, when they wait for the run to take one).
        if (m_idleWorkers > 0 && (m_next + m_window / 2 <= m_consumer + m_window || staged))
            m_workToDo.notify_all();
    }
    Prepared prepared;
    if (ahead.content) prepared.content = *ahead.content;
    prepared.staged = std::move(ahead.staged);
    prepared.copyLines = std::move(ahead.copyLines);
    prepared.failedCopy = std::move(ahead.failedCopy);
    prepared.stamp = ahead.stamp;
    prepared.kept = ahead.kept;
    prepared.storedSize = ahead.storedSize;
    return prepared;
}

SignedContent CSignatureAhead::Signature(size_t index) {
    Prepared prepared = Prepare(index);
    return prepared.SignedAhead() ? prepared.content : SignFile(m_files[index]);
}
