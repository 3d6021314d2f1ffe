// Module names and their ids (MIDs).
#ifndef NOTIFYCLIENT_NOTIFY_MODULE_H
#define NOTIFYCLIENT_NOTIFY_MODULE_H

#include <zor/notify_wire.h>

#include <cstdint>

namespace zor::notify {

constexpr bool IsModuleId(std::uint32_t mid) noexcept {
  return mid >= ZOR_NOTIFY_MID_FIRST && mid <= ZOR_NOTIFY_MID_LAST;
}

// The id of a module that connects by its name, 0 for every other name and for null.
std::uint32_t ConnectingModuleId(const char *name) noexcept;

}  // namespace zor::notify

#endif
