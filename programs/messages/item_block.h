// The body of a management message as a block for the library's functions.
#ifndef PROGRAMS_MESSAGES_ITEM_BLOCK_H
#define PROGRAMS_MESSAGES_ITEM_BLOCK_H

#include <zor/dmmsg.h>

#include <memory>
#include <string_view>

namespace zor::messages {

struct ItemBlockDeleter {
  void operator()(ZOR_DMMSG_HEAD *dm) const { ZOR_DMMSG_Free(dm); }
};
using ItemBlock = std::unique_ptr<ZOR_DMMSG_HEAD, ItemBlockDeleter>;

// Null if the bytes are not a management message.
ItemBlock ItemBlockOf(std::string_view body);

}  // namespace zor::messages

#endif
