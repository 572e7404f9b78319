#pragma once

// Signatures computed ahead of a run on a second thread: while the run copies and records one
// file, the worker hashes the next few, so hashing and copying use both cores. The run still
// asks for each signature in its own order and sees exactly what SignFile would give: a file
// the worker could not hash is hashed again on the run's thread, where the error is reported
// as usual. The worker touches no shared service (no log, no error handler, no window).

#include "engine/kvCryptDriver.h"

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

class CSignatureAhead {
public:
    // `files` must stay unchanged while this object lives.
    explicit CSignatureAhead(const std::vector<std::string>& files, size_t window = 8);
    ~CSignatureAhead();
    CSignatureAhead(const CSignatureAhead&) = delete;
    CSignatureAhead& operator=(const CSignatureAhead&) = delete;

    // The signature of files[index] with its length, as SignFile gives it; an empty signature
    // after a reported error.
    SignedContent Signature(size_t index);

private:
    void Work();

    const std::vector<std::string>& m_files;
    const size_t m_window;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    size_t m_next = 0;                // the next file the worker takes
    size_t m_consumer = 0;            // the file the run is at
    std::atomic<bool> m_stop = false; // also read by the worker while it hashes
    std::map<size_t, std::optional<SignedContent>> m_ready;
    std::thread m_thread;
};
