#pragma once

// Reading the store as a whole, for the companion's check: every store file there is (the
// two-level layout and the earlier flat one), and the signature of each one's content, read on
// every core at once.

#include "engine/kvCryptDriver.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// The store files below `root` (<root>/ab/cd/<name>.QRV, and <root>/<name>.QRV of the flat
// layout), in byte order of their paths. Temporary files and the run's mark are left out.
std::vector<std::string> StoreFiles(const std::string& root);
// Whether `name` has the shape of a store file's name: hexadecimal digits, then ".QRV".
bool IsStoreName(const std::string& name);
// The signature of each file of `paths` (nullopt for one that could not be read), in the same
// order. `done` is called on the calling thread now and then with the number signed so far.
std::vector<std::optional<SignedContent>>
SignFiles(const std::vector<std::string>& paths, const std::function<void(size_t done)>& done = {});
