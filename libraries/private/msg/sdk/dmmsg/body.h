// What is known of a device-management message before its items are looked at.
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

// Whether there is a whole head with the magic.
bool HasDmHead(const ZOR_DMMSG_HEAD *dm) noexcept;

// The length of head and items, which lie within the bus header's body length; nothing when it is not a message of
// this kind.
std::optional<std::uint32_t> UsedLength(const ZOR_DMMSG_HEAD *dm) noexcept;

}  // namespace zor

#endif
