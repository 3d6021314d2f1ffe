// The process-wide table of message handlers.
//
// Handlers may register and unregister handlers, themselves included, and may dispatch further messages. So while any
// walk of the table is on the stack an unregistered entry is only marked dead; it is freed when the outermost walk
// ends.
#ifndef SDK_MSGAPI_HANDLER_TABLE_H
#define SDK_MSGAPI_HANDLER_TABLE_H

#include <zor/msg_dispatch.h>

#include "base/list.h"

namespace zor {

// A table entry; its first part is what the caller holds as the handle.
struct HandlerEntry : ZOR_MSG_PROC_ENTRY {
  bool dead;
};

// Walks the table in its order, dead entries included: ask before each call, as the one before may have unregistered
// it.
class HandlerWalk {
 public:
  HandlerWalk() noexcept;
  ~HandlerWalk();
  HandlerWalk(const HandlerWalk &) = delete;
  HandlerWalk &operator=(const HandlerWalk &) = delete;

  ListView<HandlerEntry>::Iterator begin() const noexcept;
  ListView<HandlerEntry>::Iterator end() const noexcept;
};

}  // namespace zor

#endif
