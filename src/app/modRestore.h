#pragma once

// Restores one file of a backup run: finds its row, works out where it goes (its own place, or
// the same path below another folder), copies the store file there with retries (over an
// existing file) and, when asked, checks the copy's signature against the store file's name.
// A failure is reported through the error handler and does not stop the caller's walk.

#include <string>

// `bid` is the run's id as text (the caption of lblBid), `key` the stored (encoded) file path,
// `destination` "" for the file's own place. A verification mismatch shows one critical box.
void RestoreFile(const std::string& bid, const std::string& key, const std::string& destination,
                 bool verify);
