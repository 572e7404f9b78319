#include "app/modAbout.h"

#include "support/Version.h"

AboutTexts About() {
    return {std::string("About ") + version::kTitle, "Korvex Stashwell",
            "Version " + std::to_string(version::kMajor) + "." + std::to_string(version::kMinor) +
                "." + std::to_string(version::kRevision),
            "Backs up the folders you choose into a backup folder, storing each content once, and "
            "restores any earlier run, whole or in part.",
            "Keep your backup drive apart from the computer it protects, and try a restore now "
            "and then."};
}
