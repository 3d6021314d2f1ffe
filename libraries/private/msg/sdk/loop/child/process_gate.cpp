#include "sdk/loop/child/process_gate.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace zor {

bool StartGate::Make() noexcept {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return false;
  childEnd_.reset(ends[0]);
  parentEnd_.reset(ends[1]);
  return true;
}

void StartGate::Wait() const noexcept {
  std::uint32_t nothing;
  while (::read(childEnd_.get(), &nothing, sizeof nothing) < 0 && errno == EINTR) continue;
}

}  // namespace zor
