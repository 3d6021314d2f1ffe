#include "programs/messages/item_block.h"

#include <zor/msg.h>

#include <cstdint>
#include <cstring>
#include <utility>

namespace zor::messages {

ItemBlock ItemBlockOf(std::string_view body) {
  const auto length = static_cast<uint32_t>(body.size());
  if (length < ZOR_DMMSG_HEAD_SIZE) return nullptr;
  void *block = ZOR_MSG_GetMsgBlock(length);
  if (block == nullptr) return nullptr;
  ZOR_MSG_SetMsgProfile(block, "", ZOR_MSG_DM, length);
  std::memcpy(block, body.data(), length);
  ItemBlock items(static_cast<ZOR_DMMSG_HEAD *>(block));
  return items->magic == ZOR_DMMSG_MAGIC ? std::move(items) : nullptr;
}

}  // namespace zor::messages
