// The one bus context of the process.
#ifndef SDK_MSGAPI_CONTEXT_H
#define SDK_MSGAPI_CONTEXT_H

#include <zor/msg_head.h>

#include <cstdint>

#include "base/alloc.h"

namespace zor {

using MessagePtr = MallocPtr<ZOR_MSG_HEAD>;

// The number of a new request; wraps at 2^32.
inline std::uint32_t NextSequence() noexcept {
  return ++g_stMsgCtx.sequence;
}

}  // namespace zor

#endif
