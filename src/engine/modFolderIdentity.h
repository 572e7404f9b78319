#pragma once

// Which folder a path names, by the file system's identity of it (device and inode) rather
// than by its text: a folder reached through a link, with a trailing "/", "..", or over a bind
// mount is the same folder. The walk uses it to step around the backup folder wherever it meets
// it, and the run and the window to tell a source that lies inside the backup folder.

#include <cstdint>
#include <string>

struct FolderIdentity {
    uint64_t device = 0;
    uint64_t inode = 0;
    bool known = false; // false: no folder could be seen there
    bool operator==(const FolderIdentity&) const = default;
};

// The identity of the folder `path` names (a link is followed); unknown when it names no folder.
FolderIdentity FolderIdentityOf(const std::string& path);

// Where `folder` lies against `outer`: outside it, the very folder, or somewhere below it. The
// folder's nearest part that exists is resolved (links seen through) and compared, with each
// folder above it, with `outer`; a folder or an outer that cannot be seen lies outside.
enum class FolderPlace { kOutside, kSame, kInside };
FolderPlace PlaceOf(const std::string& folder, const std::string& outer);
