#pragma once

// Signatures computed ahead of a run on worker threads, one per core: while the run records
// one file, the workers read the next few, so reading, hashing and copying use every core. The
// run still asks for each file in its own order and sees exactly what SignFile would give: a
// file a worker could not hash is hashed again on the run's thread, where the error is reported
// as usual. The workers touch no shared service (no log, no error handler, no window).
//
// With a quick check, a worker first compares the file's stamp with the one the source's last
// run kept, and takes that run's signature without reading the file when they are equal. The
// stamp compared is the one the walk kept with the file in the list (CFileList::Stamp), so that
// a file the quick check vouches for is looked at once in the whole run; a file listed without
// one, and every file to be read, is looked at by the worker.
//
// With a staging plan, the workers also copy content that is new for certain, a file whose
// size (not 0) no stored content has, into a staged file of the store (CStore::StageAhead)
// while the copy signs it: the run then only logs the copy's lines and gives those very bytes
// their store name. The copy is the run's own (FSCopyFile's tries, size check and lines); one
// that fails is handed to the run as it failed, with the file signed all the same, so the run
// reports it as its own copy would (unless the content turns out to be stored already).

#include "engine/CFileList.h"
#include "engine/CQuickCheck.h"
#include "engine/CStore.h"
#include "engine/kvCryptDriver.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

class CSignatureAhead {
public:
    // How the workers may stage new content; `stage` is called from worker threads.
    struct StagingPlan {
        std::unordered_set<uint64_t> storedSizes;
        // When set, fills storedSizes when a worker first meets a file that it may stage (a
        // file the quick check vouched for never needs them, so a run that changed nothing
        // never reads them); called on a worker thread, once. False: nothing is staged.
        std::function<bool(std::unordered_set<uint64_t>& sizes)> loadSizes;
        std::function<CStore::AheadCopy(const std::string& source, const std::atomic<bool>* stop,
                                        std::atomic<uint64_t>* read)>
            stage;
        // Whether the backup drive has room for content of this size now; a file that would
        // not fit is only signed, so that its copy does not fill the drive under another
        // file's copy (the run then says that it lacks the space).
        std::function<bool(uint64_t size)> hasRoomFor;
        // The size of the store file that holds content of `signature`, -1 when there is none:
        // asked by the workers for each file they sign and do not stage, so that the run need
        // not look at the store itself when the content is stored already.
        std::function<double(const std::string& signature)> storedSize;
    };
    // A staging copy that failed, as the run reports it.
    struct FailedCopy {
        CopyOutcome outcome;
        CopyLines lines;
    };
    // A file as the run receives it.
    struct Prepared {
        // The signature when a worker could sign the file (and so read it to its end);
        // otherwise empty, and the run signs the file itself.
        SignedContent content;
        std::unique_ptr<CStagedContent> staged;
        CopyLines copyLines;                  // the lines of the copy that staged it
        std::optional<FailedCopy> failedCopy; // a copy that was tried and failed
        // As the file was read, unknown when it changed meanwhile; without the quick check, as
        // it was just before it was read (unknown when no staging plan asked for it). For a
        // file the quick check vouched for, as the walk found it.
        FileStamp stamp;
        bool kept = false; // the content is the quick check's, for that stamp
        // The size of the store file of the content signed, when a worker found it there.
        std::optional<double> storedSize;
        bool cancelled = false; // the run was cancelled while it waited for the file
        bool SignedAhead() const { return !content.signature.empty(); }
    };

    // `files` must stay unchanged while this object lives, and `quick` (when given) unchanged
    // while it is used here. `workers` 0 means one per core.
    explicit CSignatureAhead(const CFileList& files, size_t window = 8,
                             std::optional<StagingPlan> staging = std::nullopt,
                             unsigned workers = 0, const CQuickCheck* quick = nullptr);
    ~CSignatureAhead();
    CSignatureAhead(const CSignatureAhead&) = delete;
    CSignatureAhead& operator=(const CSignatureAhead&) = delete;

    // files[index], signed (and perhaps staged) when a worker could; the run asks for files in
    // ascending order. While the run waits, the window's events run and `waiting` is called
    // every 20 ms; when it answers true, the read-ahead stops at once and the file comes back
    // cancelled, unsigned.
    Prepared Prepare(size_t index, const std::function<bool()>& waiting = {});
    // The bytes of the files that the workers have read so far (signed or staged), with the
    // sizes of those the quick check found unchanged: how far the run has come through the
    // source's bytes, a little ahead of the file the run records.
    uint64_t BytesRead() const { return m_read.load(std::memory_order_relaxed); }
    // The signature of files[index] with its length, as SignFile gives it.
    SignedContent Signature(size_t index);

private:
    struct Ahead {
        std::optional<SignedContent> content; // nullopt: the worker could not hash it
        std::unique_ptr<CStagedContent> staged;
        CopyLines copyLines;
        std::optional<FailedCopy> failedCopy;
        FileStamp stamp;
        bool kept = false;
        std::optional<double> storedSize;
    };

    void Work();
    // `listed`: the stamp the walk kept with the file, if any.
    Ahead PrepareAhead(const std::string& path, const FileStamp& listed);
    Ahead SignAhead(const std::string& path, const FileStamp& listed);
    // Notes where the store holds the content signed, if it does.
    void LookInStore(Ahead& ahead) const;
    // Copies new content into the store while it is signed; `before` is its stamp beforehand.
    Ahead Stage(const std::string& path, const FileStamp& before);
    // Signs the file by reading it, counting the bytes in `read` when given. The run gets the
    // stamp taken as it was read with the quick check (unknown when the file changed
    // meanwhile), and `before`, taken just before, without it.
    void SignByReading(Ahead& ahead, const std::string& path, const FileStamp& before,
                       std::atomic<uint64_t>* read);

    const CFileList& m_files;
    const size_t m_window;
    std::optional<StagingPlan> m_staging; // its sizes are loaded once, under m_sizesOnce
    std::once_flag m_sizesOnce;
    bool m_sizesKnown = true;
    const CQuickCheck* const m_quick;
    std::mutex m_mutex;
    // Each side is woken only when it waits: a wake-up per file costs more than a small file.
    std::condition_variable m_workToDo; // the workers wait here for room in the window
    std::condition_variable m_oneReady; // the run waits here for its file
    unsigned m_idleWorkers = 0;
    bool m_runWaits = false;
    size_t m_next = 0;                // the next file a worker takes
    size_t m_consumer = 0;            // the file the run is at
    std::atomic<bool> m_stop = false; // also read by the workers while they hash
    std::atomic<uint64_t> m_read = 0;
    std::map<size_t, Ahead> m_ready;
    // The files in m_ready that hold a staged copy: each holds a file open, and its bytes in the
    // store until the run places them, so the workers stage no more than this many ahead,
    // whatever the window.
    static constexpr size_t kMostStagedAhead = 32;
    size_t m_stagedAhead = 0;
    std::vector<std::thread> m_threads;
};
