// The callbacks with the longest calls. While there is room every callback gets an entry; then one enters only with a
// call that is longer than all calls of some other, which it replaces.
#ifndef SDK_LOOP_LAG_CALLBACK_TABLE_H
#define SDK_LOOP_LAG_CALLBACK_TABLE_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "common/lag_page.h"

namespace zor::lag {

// What tells callbacks apart. The function's address stays in this process.
struct CallbackKey {
  const void *function;
  std::uint32_t kind;
  std::uint32_t type;

  bool operator==(const CallbackKey &) const = default;
};

// Of a callback that has not been called.
Callback NewEntry(const CallbackKey &key) noexcept;

class CallbackTable {
 public:
  // The entry of the callback after a call that long; null when it has none. The page is being written.
  Callback *EntryFor(Page &page, const CallbackKey &key, std::uint32_t us) noexcept;

 private:
  std::array<CallbackKey, kCallbacks> keys_;  // of the page's entries
};

}  // namespace zor::lag

#endif
