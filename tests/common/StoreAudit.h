#pragma once

// What a backup folder must be whatever happened to the program that wrote it: a sound
// catalogue; store files whose content has the signature of their name, private (0600 on
// Linux, the user's own security on Windows); and
// rows of every committed run that point at the store file of their signature, of the size
// they record; a metadata record that names committed runs only. The audit returns one line per problem found, so a test that expects none
// prints them all.

#include "platform/modFileStatus.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

enum class AuditMoment {
    kAfterCleanRun, // no temporary file and no mark of an unfinished run may be left
    kJustKilled,    // a killed run may leave both; the catalogue is not read (its journal is hot)
};

// Store files already found sound, so that repeated audits of a growing store read each file
// once (a store file never changes while it keeps its name and identity).
struct AuditCache {
    std::map<std::string, std::pair<FileIdentity, uint64_t>> sound;
};

std::vector<std::string> AuditBackupFolder(const std::string& backup,
                                           AuditMoment moment = AuditMoment::kAfterCleanRun,
                                           AuditCache* cache = nullptr);

// The ids of the committed runs, ascending.
std::vector<std::string> CommittedRuns(const std::string& backup);
