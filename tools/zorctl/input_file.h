// Files that the command line names.
#ifndef ZORCTL_INPUT_FILE_H
#define ZORCTL_INPUT_FILE_H

#include <cstddef>
#include <string>

namespace zor::ctl {

// The bytes of a file, or of standard input for "-". Failure (usage) when it cannot be read or is larger than limit.
std::string ReadInputFile(const std::string &path, size_t limit);

}  // namespace zor::ctl

#endif
