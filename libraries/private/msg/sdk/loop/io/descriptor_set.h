// Operations on fd_set that never leave the set, whatever the descriptor.
#ifndef SDK_LOOP_IO_DESCRIPTOR_SET_H
#define SDK_LOOP_IO_DESCRIPTOR_SET_H

#include <sys/select.h>

#include <algorithm>
#include <cstdint>

namespace zor {

constexpr bool FitsSet(std::int32_t fd) noexcept {
  return fd >= 0 && fd < FD_SETSIZE;
}

inline void AddTo(fd_set &set, std::int32_t fd) noexcept {
  if (FitsSet(fd)) FD_SET(fd, &set);
}

inline void RemoveFrom(fd_set &set, std::int32_t fd) noexcept {
  if (FitsSet(fd)) FD_CLR(fd, &set);
}

inline bool Contains(const fd_set &set, std::int32_t fd) noexcept {
  return FitsSet(fd) && FD_ISSET(fd, &set);
}

// Whether the set holds no descriptor up to and including maxFd.
inline bool IsEmpty(const fd_set &set, std::int32_t maxFd) noexcept {
  const auto *end = set.fds_bits + std::min(maxFd, FD_SETSIZE - 1) / NFDBITS + 1;
  return std::all_of(set.fds_bits, end, [](auto word) { return word == 0; });
}

}  // namespace zor

#endif
