#include "sdk/loop/lag/callback_table.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace zor::lag {
namespace {

// The symbol of a function, if it is exported, else its file and the offset in it, which addr2line and debuggers turn
// into a name. Never an address: others may read it.
void NameFunction(const void *function, std::array<char, kNameSize> &name) {
  Dl_info info = {};
  if (::dladdr(function, &info) == 0 || info.dli_fname == nullptr) {
    std::snprintf(name.data(), name.size(), "unknown");
  } else if (info.dli_sname != nullptr && info.dli_saddr == function) {
    std::snprintf(name.data(), name.size(), "%s", info.dli_sname);
  } else {
    const char *slash = std::strrchr(info.dli_fname, '/');
    const char *file = slash == nullptr ? info.dli_fname : slash + 1;
    const std::ptrdiff_t offset = static_cast<const char *>(function) - static_cast<const char *>(info.dli_fbase);
    std::snprintf(name.data(), name.size(), "%s+0x%tx", file, offset);
  }
}

}  // namespace

Callback NewEntry(const CallbackKey &key) noexcept {
  Callback entry = {};
  entry.kind = key.kind;
  entry.type = key.type;
  NameFunction(key.function, entry.name);
  return entry;
}

Callback *CallbackTable::EntryFor(Page &page, const CallbackKey &key, std::uint32_t us) noexcept {
  const auto used = keys_.begin() + page.callbackCount;
  auto found = std::find(keys_.begin(), used, key);
  if (found != used) return &page.callbacks[static_cast<std::size_t>(found - keys_.begin())];
  Callback *entry = nullptr;
  if (page.callbackCount < kCallbacks) {
    entry = &page.callbacks[page.callbackCount++];
  } else {
    entry =
        std::min_element(page.callbacks.begin(), page.callbacks.end(),
                         [](const Callback &one, const Callback &other) { return one.longestUs < other.longestUs; });
    if (entry->longestUs >= us) return nullptr;
  }
  *entry = NewEntry(key);
  keys_[static_cast<std::size_t>(entry - page.callbacks.data())] = key;
  return entry;
}

}  // namespace zor::lag
