// Copies one file in one of three ways. All three share one data loop: the system's own range
// copy (copy_file_range on Linux), which moves the bytes (or shares extents) without a trip
// through the program, and a plain read/write loop with 1 MiB blocks where the file systems do
// not support it or where an observer must see the bytes. Sources are opened without following
// a symbolic link. Pending window messages run between blocks. Sources and destinations that
// are not regular files are refused without blocking, so a FIFO never hangs a copy. Files the copy
// creates get mode 0600 whatever the source's mode: the store holds private data.

#include "support/modFileCopy.h"

#include "platform/modFileIO.h"
#include "support/CBufferPool.h"
#include "support/CServiceContext.h"
#include "support/modFSCommon.h"
#include "support/modNumText.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

namespace {

constexpr size_t kBlockSize = size_t{1} << 20;

thread_local int t_lastSystemError = 0;

// Notes why a copy method failed; false, for the method to answer.
bool Failed(int error) {
    t_lastSystemError = error;
    return false;
}

// A file closed on every way out; Close() reports whether the close succeeded, which matters
// for writes that only fail when they reach the disk.
class FileHandle {
public:
    explicit FileHandle(NativeFile file) : m_file(file) {}
    ~FileHandle() {
        if (m_file != kNoFile) CloseFileHandle(m_file);
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    NativeFile Get() const { return m_file; }
    bool Valid() const { return m_file != kNoFile; }
    int Close() { return CloseFileHandle(std::exchange(m_file, kNoFile)); }

private:
    NativeFile m_file;
};

bool IsRegular(NativeFile file, uint64_t* size = nullptr) {
    const PathStatus status = StatusOfOpen(file);
    if (status.kind != PathKind::kFile) return false;
    if (size) *size = status.size;
    return true;
}

// Copies from the current position of `in` until its end to `out`, at `*outOffset` when it is
// given (advanced), else at the current position of `out`.
bool CopyData(NativeFile in, NativeFile out, uint64_t expected, ICopyObserver* observer,
              uint64_t* outOffset) {
    if (expected > kBlockSize) AdviseSequential(in);
    // A pooled buffer, leased at the first piece that goes through it: a fresh megabyte per
    // file costs a map and an unmap each. A copy started from the window's events (DoEvents
    // below) leases one of its own.
    static CBufferPool buffers(kBlockSize);
    std::optional<CBufferPool::Lease> buffer;
    bool useRange = observer == nullptr;
    uint64_t done = 0;
    int error = 0;
    for (;;) {
        int64_t n = 0;
        if (useRange) {
            n = CopyBytes(in, out, outOffset, kBlockSize, error);
            // Some file systems answer 0 before the end; the plain loop finds the real end.
            if ((n < 0 && error == ENOSYS) || (n == 0 && done < expected)) {
                useRange = false;
                continue;
            }
        } else {
            if (observer && observer->Stopped()) return Failed(kStoppedError);
            if (!buffer) buffer.emplace(buffers.Take());
            n = ReadBytes(in, buffer->Data(), kBlockSize, nullptr, error);
            if (n > 0 && !WriteBytes(out, buffer->Data(), static_cast<size_t>(n), outOffset, error))
                return Failed(error);
            if (n > 0 && observer) observer->Written(buffer->Data(), static_cast<size_t>(n));
        }
        if (n < 0) return Failed(error);
        if (n == 0) return true;
        done += static_cast<uint64_t>(n);
        DoEvents();
    }
}

// Copies into a file held open: as an open with `mode` would find it, the file being there
// (kCreateNew fails, kCreateOrEmpty empties it), written from its start.
bool CopyIntoOpen(NativeFile in, uint64_t size, NativeFile out, OpenMode mode,
                  ICopyObserver* observer) {
    if (mode == OpenMode::kCreateNew) return Failed(EEXIST);
    if (mode == OpenMode::kCreateOrEmpty) {
        if (const int error = TruncateTo(out, 0); error != 0) return Failed(error);
    }
    uint64_t offset = 0;
    return CopyData(in, out, size, observer, &offset);
}

// Copies `source` over `destination`, opened for writing as `mode` says (or held open).
bool CopyInto(const std::string& source, const CopyDestination& destination, OpenMode mode,
              ICopyObserver* observer) {
    int error = 0;
    FileHandle in(OpenFileHandle(source, OpenMode::kRead, error));
    uint64_t size = 0;
    if (!in.Valid()) return Failed(error);
    if (!IsRegular(in.Get(), &size)) return Failed(0);
    if (destination.file != kNoFile)
        return CopyIntoOpen(in.Get(), size, destination.file, mode, observer);
    FileHandle out(OpenFileHandle(destination.path, mode, error));
    if (!out.Valid()) return Failed(error);
    if (!IsRegular(out.Get())) return Failed(0);
    const bool copied = CopyData(in.Get(), out.Get(), size, observer, nullptr);
    // A write that only fails when it reaches the disk fails the close.
    if (const int closeError = out.Close(); closeError != 0) return Failed(closeError);
    return copied;
}

} // namespace

CopyMethods DefaultCopyMethods() {
    CopyMethods methods;
    methods.mode1 = [](const std::string& source, const CopyDestination& destination,
                       ICopyObserver* observer) {
        return CopyInto(source, destination, OpenMode::kCreateNew, observer);
    };
    methods.mode2 = [](const std::string& source, const CopyDestination& destination,
                       ICopyObserver* observer) {
        return CopyInto(source, destination, OpenMode::kCreateOrEmpty, observer);
    };
    methods.mode3 = [](const std::string& source, const CopyDestination& destination,
                       ICopyObserver* observer) {
        return CopyInto(source, destination, OpenMode::kCreateOrKeep, observer);
    };
    return methods;
}

namespace {
struct ActiveCopy {
    CopyMethods methods = DefaultCopyMethods();
};
} // namespace

CopyMethods& ActiveCopyMethods() {
    return ServicePart<ActiveCopy>().methods;
}

int LastCopySystemError() {
    return t_lastSystemError;
}

bool CopyFileByMode(const std::string& source, const CopyDestination& destination, int32_t mode,
                    ICopyObserver* observer) {
    return CopyByMode(source, destination, mode, observer,
                      [](int32_t level, const std::string& line) { Log(level, line); });
}

bool CopyByMode(const std::string& source, const CopyDestination& destination, int32_t mode,
                ICopyObserver* observer, const CopyLineSink& sink) {
    const CopyMethods& methods = ActiveCopyMethods();
    bool result = false;
    t_lastSystemError = 0;
    try {
        if (observer) observer->Restart();
        switch (mode) {
        case 1:
            methods.mode1(source, destination, observer); // its own answer is not looked at
            result = true;
            break;
        case 2:
            result = methods.mode2(source, destination, observer);
            break;
        case 3:
            result = methods.mode3(source, destination, observer);
            break;
        default:
            break;
        }
    } catch (...) {
        // A method that raises is a copy that failed; the caller's size check decides.
        result = false;
    }
    sink(3, "CopyMode = " + NumText(mode) + ". Returned: " + (result ? "True" : "False"));
    return result;
}
