// Checks of a device-management message that need no look at its items.
#ifndef SDK_DMMSG_BODY_H
#define SDK_DMMSG_BODY_H

#include <zor/dmmsg.h>
#include <zor/msg_wire.h>

#include <cstdint>
#include <optional>

namespace zor {

inline ZOR_MSG_HEAD &BusHeaderOf(ZOR_DMMSG_HEAD &dm) noexcept {
  return reinterpret_cast<ZOR_MSG_HEAD *>(&dm)[-1];
}
inline const ZOR_MSG_HEAD &BusHeaderOf(const ZOR_DMMSG_HEAD &dm) noexcept {
  return reinterpret_cast<const ZOR_MSG_HEAD *>(&dm)[-1];
}

// Whether the body has a complete head with the magic.
bool HasDmHead(const ZOR_DMMSG_HEAD *dm) noexcept;

// The length of head and items, bounded by the bus header's body length; nothing when it is not a device-management
// message.
std::optional<std::uint32_t> UsedLength(const ZOR_DMMSG_HEAD *dm) noexcept;

}  // namespace zor

#endif
