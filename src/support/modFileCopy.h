#pragma once

// Copies one file in one of three ways. FSCopyFile tries mode 3, then 2, then 1, so the copy
// mode equals the tries left:
//   3  stream copy: an existing destination is written over without being truncated;
//   2  copy that overwrites (truncates) the destination;
//   1  copy that fails if the destination exists; its result is true whatever happened.
// Every call logs at level 3: "CopyMode = <mode>. Returned: True|False".
// An observer, when given, sees every byte that each attempt writes, so a caller can sign the
// very bytes that reached the destination.

#include "platform/modFileIO.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

// Sees the data of a copy: Restart when an attempt begins, then every piece in order, once it
// has been written to the destination. A copy asks Stopped() before each piece and, once it
// answers true, ends there as a copy that failed.
class ICopyObserver {
public:
    virtual ~ICopyObserver() = default;
    virtual void Restart() = 0;
    virtual void Written(const char* data, size_t size) = 0;
    virtual bool Stopped() const { return false; }
};

// Where a copy writes: a path, or a file the caller holds open for writing, written through
// its handle from its start and left open (the store's staged files: no second open, and
// the file the caller made is the one written). A method that knows only paths takes the
// destination as its path.
struct CopyDestination {
    CopyDestination(std::string name, NativeFile open = kNoFile)
        : path(std::move(name)), file(open) {}
    CopyDestination(const char* name) : path(name) {}
    operator const std::string&() const { return path; }
    std::string path;
    NativeFile file = kNoFile;
};

bool CopyFileByMode(const std::string& source, const CopyDestination& destination, int32_t mode,
                    ICopyObserver* observer = nullptr);

// Where the lines of a copy go: the shared log on the run's thread, a list kept for later on a
// worker thread, which must not touch the log.
using CopyLineSink = std::function<void(int32_t level, const std::string& line)>;
// CopyFileByMode with its line going to `sink` instead of the log; callable from any thread.
bool CopyByMode(const std::string& source, const CopyDestination& destination, int32_t mode,
                ICopyObserver* observer, const CopyLineSink& sink);

// The system's error number behind the last copy method of this thread that failed (EFBIG,
// ENOSPC, ...), 0 when it failed for no such reason (or a test's method gave none).
int LastCopySystemError();

// The three methods behind the modes, replaceable so that a test can break one of them
// (wrap the default and change one call). Each returns false on error (mode 1's result is
// ignored by CopyFileByMode).
using CopyMethod = std::function<bool(const std::string& source, const CopyDestination& destination,
                                      ICopyObserver* observer)>;
struct CopyMethods {
    CopyMethod mode1; // create-exclusive copy
    CopyMethod mode2; // overwriting copy
    CopyMethod mode3; // stream copy without truncation
};
CopyMethods DefaultCopyMethods();
CopyMethods& ActiveCopyMethods();
