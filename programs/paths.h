// Fixed paths as strings, and the directories that they need.
#ifndef PROGRAMS_PATHS_H
#define PROGRAMS_PATHS_H

#include <sys/types.h>

#include <string>

namespace zor::daemon {

// Where a fixed path such as "/var/msgsvr" is opened on this system; empty when the result would be too long.
std::string FixedPath(const std::string &path);

// Makes the directory at a fixed path and what is missing above it, which gets mode 0755. A directory that exists keeps
// its mode. False, with errno, when it cannot be made or something else is there.
bool MakeDirectory(const std::string &fixedPath, mode_t mode = 0755);

// The directory part of a path, without the last slash: "/var" for "/var/msgsvr", "" for "/x".
std::string ParentOf(const std::string &path);

}  // namespace zor::daemon

#endif
