// The end of a file.
#ifndef ZORWEB_FILE_TAIL_H
#define ZORWEB_FILE_TAIL_H

#include <cstddef>
#include <optional>
#include <string>

namespace zor::web {

// Whole lines from the end of a file, by its real path; nothing if it cannot be read or is a link: others may put files
// into its directory, and a link could lead to what only this program may read, such as its key.
std::optional<std::string> ReadTail(const std::string &path, size_t most);

// The same of the logging daemon's circular file, whose header says where its end is.
std::optional<std::string> ReadCircularTail(const std::string &path, size_t most);

}  // namespace zor::web

#endif
