// Writing files.
#ifndef COMMON_FILES_H
#define COMMON_FILES_H

#include <cstddef>
#include <span>

namespace zor::daemon {

// False, with errno, when not all of it could be written.
bool WriteAll(int file, std::span<const std::byte> content);

}  // namespace zor::daemon

#endif
