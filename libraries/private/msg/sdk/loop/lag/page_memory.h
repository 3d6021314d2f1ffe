// The memory of the figures: the process's own, or a file that operators' tools find by the process ID.
#ifndef SDK_LOOP_LAG_PAGE_MEMORY_H
#define SDK_LOOP_LAG_PAGE_MEMORY_H

#include <cstdint>

#include "common/lag_page.h"

namespace zor::lag {

class PageMemory {
 public:
  PageMemory() = default;
  PageMemory(const PageMemory &) = delete;
  PageMemory &operator=(const PageMemory &) = delete;

  // Gets an empty page in place of the former one; a status, and then there is none.
  std::uint32_t Make(bool offered) noexcept;
  // Gives it back and removes the file.
  void Release() noexcept;
  // Removes the file alone: callbacks may still run while the process ends.
  void RemoveFile() noexcept;
  // In a forked child, where the file is the parent's.
  void Forget() noexcept;

  Page *page() const noexcept { return page_; }

 private:
  Page *page_ = nullptr;
  bool offered_ = false;
};

}  // namespace zor::lag

#endif
