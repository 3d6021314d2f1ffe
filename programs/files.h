// Writing files.
#ifndef COMMON_FILES_H
#define COMMON_FILES_H

#include <cstddef>
#include <span>
#include <string>

namespace zor::daemon {

// False, with errno, when not all of it could be written.
bool WriteAll(int file, std::span<const std::byte> content);

// Replaces the file at a real path, or makes it, readable by its owner only: after a crash it holds either what it held
// or the new content. False, with errno, when it has been left as it was.
bool ReplaceFile(const std::string &path, std::span<const std::byte> content);

}  // namespace zor::daemon

#endif
