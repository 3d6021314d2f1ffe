// The one bus context of the process.
#ifndef MESSAGE_CONTEXT_H
#define MESSAGE_CONTEXT_H

#include <zor/msg_head.h>

#include <cstdint>

#include "base/alloc.h"

namespace zor {

using MessagePtr = MallocPtr<ZOR_MSG_HEAD>;

// A block for a message with a body of the given length, nothing of it cleared; null when the guard refuses it.
inline MessagePtr NewMessageBlock(std::uint64_t bodyLength) noexcept {
  return MessagePtr(static_cast<ZOR_MSG_HEAD *>(GuardedAlloc(ZOR_MSG_HEAD_SIZE + bodyLength)));
}

// The number of a new request; wraps at 2^32.
inline std::uint32_t NextSequence() noexcept {
  return ++g_stMsgCtx.sequence;
}

}  // namespace zor

#endif
