// Paths in requests: whoever may send a request names a file that this daemon may use and the sender may not.
#ifndef CMS_REQUESTED_PATH_H
#define CMS_REQUESTED_PATH_H

#include <cstddef>
#include <span>
#include <string>

namespace zor::cms {

// The real path of the file that the body of a request names: an absolute path without "..", with its NUL. Empty if the
// body is malformed.
std::string RequestedPath(std::span<const char> body);

// Whether the real path is directly in the real directory, whatever links lead there. True as well if that cannot be
// found out.
bool IsIn(const std::string &path, const std::string &directory);

}  // namespace zor::cms

#endif
