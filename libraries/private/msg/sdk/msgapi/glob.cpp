#include <zor/msg_dispatch.h>

#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "common/path_pattern.h"

uint32_t ZOR_UTIL_MatchPrefixPath(const char *patternList, const char *path) {
  if (patternList == nullptr || path == nullptr) return 0;
  const std::size_t size = zor::PathMatcher::RoomFor(std::strlen(path));
  const std::unique_ptr<std::uint64_t[]> room(new (std::nothrow) std::uint64_t[size]);
  return room != nullptr && zor::PathMatcher(path, {room.get(), size}).MatchesOneOf(patternList) ? 1 : 0;
}
