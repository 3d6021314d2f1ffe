// The process-wide table of message handlers.
//
// Handlers may register and unregister handlers, themselves included, and may dispatch further messages. So while any
// walk of the table is on the stack an unregistered entry is only marked dead; it is freed when the outermost walk
// ends.
#ifndef SDK_MSGAPI_HANDLER_TABLE_H
#define SDK_MSGAPI_HANDLER_TABLE_H

#include <zor/msg_dispatch.h>

namespace zor {

// A table entry; its first part is what the caller holds as the handle.
struct HandlerEntry : ZOR_MSG_PROC_ENTRY {
  bool dead;
};

// Walks the table in its order, dead entries included: ask before each call, as the one before may have unregistered
// it. The link is read after the loop's body, so an entry that the body registers further down is walked too; entries
// stay linked as long as a walk runs, so the link is always there.
class HandlerWalk {
 public:
  class Iterator {
   public:
    explicit Iterator(HandlerEntry *entry) noexcept : entry_(entry) {}
    HandlerEntry *operator*() const noexcept { return entry_; }
    Iterator &operator++() noexcept {
      entry_ = static_cast<HandlerEntry *>(entry_->next);
      return *this;
    }
    bool operator!=(const Iterator &other) const noexcept { return entry_ != other.entry_; }

   private:
    HandlerEntry *entry_;
  };

  HandlerWalk() noexcept;
  ~HandlerWalk();
  HandlerWalk(const HandlerWalk &) = delete;
  HandlerWalk &operator=(const HandlerWalk &) = delete;

  Iterator begin() const noexcept;
  Iterator end() const noexcept { return Iterator(nullptr); }
};

}  // namespace zor

#endif
