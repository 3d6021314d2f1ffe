#include <zor/dmmsg.h>

#include <zor/msg_build.h>
#include <zor/platform/system.h>
#include <zor/status.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "sdk/dmmsg/body.h"

static_assert(sizeof(ZOR_DMMSG_HEAD) == ZOR_DMMSG_HEAD_SIZE);
static_assert(offsetof(ZOR_DMMSG_HEAD, magic) == 0);
static_assert(offsetof(ZOR_DMMSG_HEAD, capacity) == 4);
static_assert(offsetof(ZOR_DMMSG_HEAD, free) == 8);
static_assert(offsetof(ZOR_DMMSG_HEAD, errorCode) == 12);
static_assert(offsetof(ZOR_DMMSG_HEAD, configId) == 16);
static_assert(offsetof(ZOR_DMMSG_HEAD, subType) == 20);

namespace zor {

bool HasDmHead(const ZOR_DMMSG_HEAD *dm) noexcept {
  return dm != nullptr && BusHeaderOf(*dm).bodyLength >= ZOR_DMMSG_HEAD_SIZE && dm->magic == ZOR_DMMSG_MAGIC;
}

std::optional<std::uint32_t> UsedLength(const ZOR_DMMSG_HEAD *dm) noexcept {
  if (!HasDmHead(dm) || dm->free > dm->capacity) return std::nullopt;
  const std::uint32_t used = std::min(dm->capacity - dm->free, BusHeaderOf(*dm).bodyLength);
  if (used < ZOR_DMMSG_HEAD_SIZE) return std::nullopt;
  return used;
}

}  // namespace zor

uint32_t ZOR_DMMSG_Builder(ZOR_DMMSG_HEAD **dm, const char *destination, uint32_t subType) {
  if (dm == nullptr || destination == nullptr) return ZOR_E_DM_ARGUMENT;
  void *body = ZOR_MSG_GetMsgBlock(ZOR_DMMSG_NEW_CAPACITY);
  if (body == nullptr) return ZOR_E_DM_NO_BLOCK;
  std::memset(body, 0, ZOR_DMMSG_NEW_CAPACITY);  // unused bytes may travel
  ZOR_MSG_SetMsgProfile(body, destination, ZOR_MSG_DM, ZOR_DMMSG_NEW_CAPACITY);
  *dm = static_cast<ZOR_DMMSG_HEAD *>(body);
  **dm = {ZOR_DMMSG_MAGIC,
          ZOR_DMMSG_NEW_CAPACITY,
          ZOR_DMMSG_NEW_CAPACITY - ZOR_DMMSG_HEAD_SIZE,
          0,
          ZOR_UTIL_GetGlobalConfigId(),
          subType};
  return ZOR_OK;
}

uint32_t ZOR_DMMSG_GetErrCode(const ZOR_DMMSG_HEAD *dm) {
  return zor::HasDmHead(dm) ? dm->errorCode : 0;
}

uint32_t ZOR_DMMSG_GetSubType(const ZOR_DMMSG_HEAD *dm) {
  return zor::HasDmHead(dm) ? dm->subType : 0;
}

void ZOR_DMMSG_Free(ZOR_DMMSG_HEAD *dm) {
  std::free(ZOR_MSG_GetMsgHead(dm));
}
