#pragma once

// The command-line companion's entry: reads the words, chooses the backup path (the settings
// file's, or --backup-path), and runs one command. Problems are one line on `err`, starting
// "qrv: "; a message that a command of the shared core would show in a box goes there too.
// The exit statuses are those of modQrvExit.h. No exception leaves it: a settings file that
// cannot be read is named with its cause (status 3, as any backup folder it cannot open), and
// an error that no command caught is one line and status 1.

#include <iosfwd>
#include <string>
#include <vector>

int QrvMain(const std::vector<std::string>& words, std::ostream& out, std::ostream& err);
