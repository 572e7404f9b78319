#pragma once

// Reading the store as a whole, for the companion's check: every store file there is (the
// two-level layout and the earlier flat one), and the signature of each one's content, read on
// every core at once.

#include "engine/kvCryptDriver.h"
#include "platform/modFileStatus.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// The store files below `root` (<root>/ab/cd/<name>.QRV, and <root>/<name>.QRV of the flat
// layout), in byte order of their paths. Temporary files and the run's mark are left out.
std::vector<std::string> StoreFiles(const std::string& root);
// What stands in a store file's place, against the size the catalogue records for it.
struct StoreEntry {
    enum Fault { kSound, kMissing, kUnreadable, kNotAFile, kWrongSize };
    Fault fault = kSound;
    PathStatus status; // what the file system said, a link answered as itself
    int error = 0;     // the system's error for kUnreadable
    // "holds N bytes, the catalogue records M", for kWrongSize.
    std::string SizeMismatch(uint64_t size) const;
    // "a folder", "a symbolic link" or "a special file", for kNotAFile.
    std::string Kind() const;
};
// Looks at `path` without following a link: a regular file of `size` bytes is sound.
StoreEntry InspectStoreFile(const std::string& path, uint64_t size);
// Whether `name` has the shape of a store file's name: hexadecimal digits, then ".QRV".
bool IsStoreName(const std::string& name);
// The signature of each file of `paths` (nullopt for one that could not be read), in the same
// order. `done` is called on the calling thread now and then with the number signed so far and
// the bytes read so far (of the files signed and of those being signed).
std::vector<std::optional<SignedContent>>
SignFiles(const std::vector<std::string>& paths,
          const std::function<void(size_t done, uint64_t bytes)>& done = {});
