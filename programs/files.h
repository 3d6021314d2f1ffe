// Replaces files.
#ifndef PROGRAMS_FILES_H
#define PROGRAMS_FILES_H

#include <cstddef>
#include <span>
#include <string>

namespace zor::daemon {

// Replaces the file at a real path, or makes it, readable by its owner only: after a crash it holds either what it held
// or the new content. False, with errno, when it has been left as it was.
bool ReplaceFile(const std::string &path, std::span<const std::byte> content);

}  // namespace zor::daemon

#endif
