// Helpers that the fuzz targets share.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "common/unique_fd.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace zor::fuzz {

// Ends the program when an invariant does not hold.
inline void Require(bool holds, const char *invariant) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", invariant);
  std::abort();
}

// The input as a text: up to its first zero byte.
inline std::string TextOf(const std::uint8_t *data, std::size_t size) {
  return {data, std::find(data, data + size, 0)};
}

struct Sockets {
  UniqueFd far;
  UniqueFd near;
};

inline Sockets SocketPair() {
  int fds[2];
  Require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0, "sockets can be had");
  return {UniqueFd(fds[0]), UniqueFd(fds[1])};
}

// The input as a stream that ends after it.
inline UniqueFd StreamOf(const std::uint8_t *data, std::size_t size) {
  Sockets sockets = SocketPair();
  Require(::write(sockets.far.get(), data, size) == static_cast<ssize_t>(size), "the input fits a socket");
  return std::move(sockets.near);
}

}  // namespace zor::fuzz

#endif
