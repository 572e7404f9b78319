#pragma once

// Signatures computed ahead of a run on a second thread: while the run copies and records one
// file, the worker hashes the next few, so hashing and copying use both cores. The run still
// asks for each signature in its own order and sees exactly what SignFile would give: a file
// the worker could not hash is hashed again on the run's thread, where the error is reported
// as usual. The worker touches no shared service (no log, no error handler, no window).
//
// Given the sizes of the content already stored, the worker also spots content that is new
// for certain: a file whose size (not 0) neither stored content nor an earlier file of the list
// has. Such a file is not read ahead; the run signs it as it copies it into the store, so its
// bytes are read and signed once, and the signature is that of the very bytes stored.

#include "engine/kvCryptDriver.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

class CSignatureAhead {
public:
    using Sizes = std::unordered_set<uint64_t>;

    // `files` must stay unchanged while this object lives. Without `storedSizes` every file is
    // signed ahead.
    explicit CSignatureAhead(const std::vector<std::string>& files, size_t window = 8,
                             std::optional<Sizes> storedSizes = std::nullopt);
    ~CSignatureAhead();
    CSignatureAhead(const CSignatureAhead&) = delete;
    CSignatureAhead& operator=(const CSignatureAhead&) = delete;

    // The signature of files[index] with its length, as SignFile gives it (an empty signature
    // after a reported error); nullopt for new content left to be signed as it is copied.
    std::optional<SignedContent> Signature(size_t index);

private:
    struct Ahead {
        bool leftForCopy = false;
        std::optional<SignedContent> signature; // nullopt: the worker could not hash it
    };

    void Work();
    // Whether a file of `size` is new content for certain (its size is then taken); called
    // with the mutex held.
    bool NewForCertain(int64_t size);

    const std::vector<std::string>& m_files;
    const size_t m_window;
    std::optional<Sizes> m_sizes;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    size_t m_next = 0;                // the next file the worker takes
    size_t m_consumer = 0;            // the file the run is at
    std::atomic<bool> m_stop = false; // also read by the worker while it hashes
    std::map<size_t, Ahead> m_ready;
    std::thread m_thread;
};
