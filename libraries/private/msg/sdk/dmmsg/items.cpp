// Items are packed without padding, so their words are never read or written in place.
#include <zor/dmmsg.h>
#include <zor/status.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "base/bytes.h"
#include "message/context.h"
#include "sdk/dmmsg/body.h"

namespace zor {
namespace {

constexpr std::uint32_t kExtraRoom = 1024;  // so that a long message does not move at every append
// How far an item may reach beyond the used part. The slack behind every message block is larger.
constexpr std::uint32_t kOverhangMax = 12;

struct NewItem {
  std::uint32_t kind;
  std::string_view name;  // its NUL included
  std::string_view value;

  // In 64 bits, like every sum of lengths here: they come from other processes.
  std::uint64_t Length() const { return ZOR_DMMSG_ITEM_HEAD_SIZE + std::uint64_t{name.size()} + value.size(); }
};

std::string_view NameWithNul(const char *name) {
  if (name == nullptr || *name == '\0') return {};
  return {name, std::strlen(name) + 1};
}

char *BodyBytes(ZOR_DMMSG_HEAD &dm) {
  return reinterpret_cast<char *>(&dm);
}

// Writes an item behind the used part, where there must be room for it.
void Put(ZOR_DMMSG_HEAD &dm, std::uint32_t used, const NewItem &item) {
  char *to = BodyBytes(dm) + used;
  StoreU32(to, item.kind);
  StoreU32(to + 4, static_cast<std::uint32_t>(item.name.size()));
  StoreU32(to + 8, static_cast<std::uint32_t>(item.value.size()));
  to += ZOR_DMMSG_ITEM_HEAD_SIZE;
  to += item.name.copy(to, item.name.size());
  item.value.copy(to, item.value.size());
  dm.free -= static_cast<std::uint32_t>(item.Length());
}

// A larger copy of the message with its lengths adjusted; null when the allocation is refused.
MessagePtr GrownCopy(const ZOR_DMMSG_HEAD &dm, std::uint32_t used, std::uint64_t needed) {
  const std::uint64_t capacity = dm.capacity + needed + kExtraRoom;
  MessagePtr copy = GuardedRegrow(MessagePtr(), 0, ZOR_MSG_HEAD_SIZE + capacity);
  if (copy == nullptr) return nullptr;
  std::memcpy(copy.get(), &BusHeaderOf(dm), ZOR_MSG_HEAD_SIZE + std::size_t{used});
  copy->bodyLength = static_cast<std::uint32_t>(capacity);
  auto *grown = static_cast<ZOR_DMMSG_HEAD *>(ZOR_MSG_GetMsgByHead(copy.get()));
  grown->capacity = copy->bodyLength;
  grown->free = copy->bodyLength - used;
  return copy;
}

// The distance of a position from the start of the message; meaningless for a position outside it.
std::uintptr_t OffsetOf(const ZOR_DMMSG_HEAD &dm, const void *position) {
  if (position == nullptr) return ZOR_DMMSG_HEAD_SIZE;
  return reinterpret_cast<std::uintptr_t>(position) - reinterpret_cast<std::uintptr_t>(&dm);
}

ZOR_DMMSG_ITEM ViewOf(const char *at) {
  ZOR_DMMSG_ITEM item = {LoadU32(at), LoadU32(at + 4), LoadU32(at + 8), nullptr, nullptr};
  at += ZOR_DMMSG_ITEM_HEAD_SIZE;
  if (item.nameLength != 0) item.name = at;
  if (item.valueLength != 0) item.value = at + item.nameLength;
  return item;
}

}  // namespace
}  // namespace zor

uint32_t ZOR_DMMSG_AppendItem(ZOR_DMMSG_HEAD **dm, uint32_t kind, const char *name, const void *value,
                              uint32_t valueLength) {
  if (dm == nullptr || (value == nullptr && valueLength != 0)) return ZOR_E_DM_ARGUMENT;
  const auto used = zor::UsedLength(*dm);
  if (!used) return ZOR_E_DM_ARGUMENT;
  const zor::NewItem item = {kind, zor::NameWithNul(name), {static_cast<const char *>(value), valueLength}};
  if (item.Length() <= std::min((*dm)->free, zor::BusHeaderOf(**dm).bodyLength - *used)) {
    zor::Put(**dm, *used, item);
    return ZOR_OK;
  }
  // Freed in every outcome, but only at the end: name and value may point into it.
  const zor::MessagePtr old(&zor::BusHeaderOf(**dm));
  zor::MessagePtr grown = zor::GrownCopy(**dm, *used, item.Length());
  *dm = static_cast<ZOR_DMMSG_HEAD *>(ZOR_MSG_GetMsgByHead(grown.release()));
  if (*dm == nullptr) return ZOR_E_DM_NO_MEMORY;
  zor::Put(**dm, *used, item);
  return ZOR_OK;
}

uint32_t ZOR_DMMSG_GetItem(const ZOR_DMMSG_HEAD *dm, ZOR_DMMSG_ITEM *item, const void **iterator) {
  const auto used = zor::UsedLength(dm);
  if (!used || item == nullptr || iterator == nullptr) return ZOR_E_DM_ARGUMENT;
  const std::uintptr_t start = zor::OffsetOf(*dm, *iterator);
  if (start < ZOR_DMMSG_HEAD_SIZE || start >= *used) return ZOR_E_DM_ARGUMENT;
  const char *at = reinterpret_cast<const char *>(dm) + start;
  const std::uint64_t length = ZOR_DMMSG_ITEM_HEAD_SIZE + std::uint64_t{zor::LoadU32(at + 4)} + zor::LoadU32(at + 8);
  if (start + length > std::uint64_t{*used} + zor::kOverhangMax) return ZOR_E_DM_ARGUMENT;
  *item = zor::ViewOf(at);
  *iterator = at + length;
  return ZOR_OK;
}
