// Memory that a server gives back when there is no more, so that it can still refuse, notify and log: it serves the
// others with what the one costs that is given up.
#ifndef PROGRAMS_MEMORY_RESERVE_H
#define PROGRAMS_MEMORY_RESERVE_H

#include <cstddef>
#include <memory>
#include <new>

namespace zor::daemon {

class MemoryReserve {
 public:
  MemoryReserve() { Refill(); }

  // Call it where std::bad_alloc is caught.
  void Spend() { block_.reset(); }
  // Call it in every turn.
  void Refill() {
    if (block_ == nullptr) block_.reset(new (std::nothrow) std::byte[kBytes]);
  }

 private:
  static constexpr size_t kBytes = 32768;
  std::unique_ptr<std::byte[]> block_;
};

}  // namespace zor::daemon

#endif
