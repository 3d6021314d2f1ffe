#include "zorbridge/retry.h"

#include <sys/random.h>

#include <algorithm>
#include <cstdint>

namespace zor::bridge {
namespace {

// From the kernel, since clocks and process numbers of gateways that start together are alike.
uint64_t Random() {
  uint64_t number = 0;
  if (::getrandom(&number, sizeof number, 0) != sizeof number) number = 0;
  return number;
}

}  // namespace

std::chrono::milliseconds Retry::Next() {
  const auto range = static_cast<uint64_t>(std::max<int64_t>(pause_.count(), 1));
  pause_ = std::min(pause_ * 2, std::max(options_.longest, options_.first));
  return std::chrono::milliseconds(static_cast<int64_t>(Random() % range));
}

bool Retry::Ended(std::chrono::milliseconds lasted) {
  if (lasted < options_.lasting) return false;
  pause_ = options_.first;
  return true;
}

}  // namespace zor::bridge
