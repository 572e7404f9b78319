#pragma once

// What `find` says of every entry at and below a folder, by path below it ("/" for the folder
// itself): type, mode, write time to the nanosecond, size (not for folders, whose size is the
// file system's own) and a link's text, as `find -printf '%y %m %T@ %s %l'` prints them:
// "f 640 915148800.1234567890 6 ", "l 777 1234567890.0000000000 9 notes.txt",
// "d 700 1060000000.0000000000 -". The listing a restore must give back, made by a program
// that is not Stashwell. Linux only.

#include <map>
#include <string>

std::map<std::string, std::string> FindListing(const std::string& root);
