#pragma once

// One folder's entries, one at a time, as the system lists them ("." and ".." included where
// the system lists them), with what it tells of each. On Linux the details of an entry are
// asked for only when wanted; on Windows they come with the listing.

#include "platform/modFileStatus.h"

#include <cstdint>
#include <memory>
#include <string>

class CFolderListing {
public:
    // Attribute bits of an entry, as the Windows attribute word reports them.
    static constexpr uint32_t kReadOnly = 0x1, kHidden = 0x2, kSystem = 0x4, kDirectory = 0x10,
                              kArchive = 0x20, kNormal = 0x80, kTemporary = 0x100,
                              kCompressed = 0x800;

    CFolderListing();
    ~CFolderListing();
    CFolderListing(const CFolderListing&) = delete;
    CFolderListing& operator=(const CFolderListing&) = delete;

    // Starts listing `folder`: 0 or the system's error.
    int Open(const std::string& folder);
    // The next entry's name and what it is (kFolder, kFile, kLink for links and Windows
    // junctions, kOther for FIFOs, sockets and devices); false at the end.
    bool Next(std::string& name, PathKind& kind);
    // Size, identity and times of the entry last listed, a link answered as itself; unknown
    // (kNone) when it went meanwhile.
    const PathStatus& Status() const;
    // The same without the identity, which Windows does not list and must open the entry to
    // learn (its identity is then unknown, all zero); on Linux the same as Status().
    const PathStatus& Listed() const;
    // Its attribute bits: on Windows the real ones; on Linux a folder is kDirectory, a file
    // kArchive, a name beginning with "." (but "." and "..") kHidden, an entry its owner cannot
    // write kReadOnly, and nothing else kNormal.
    uint32_t Attributes() const;
    void Close();

private:
    struct State;
    std::unique_ptr<State> m_state;
};
