// The watcher list and its two rules of safety. Callbacks may delete any watcher, run the loop again or destroy it
// while the list is being walked and while callbacks are on the stack:
// - a walk is a cursor that an unlinking moves on, so it never steps onto a freed record;
// - a record whose callback is on the stack is unlinked at once, but freed only when that callback has returned.
// What is on the stack is known per thread, so that threads may run loops of their own.
#ifndef SDK_LOOP_CORE_WATCHER_H
#define SDK_LOOP_CORE_WATCHER_H

#include <zor/uv_io.h>

#include <cstdint>

namespace zor {

// The record that a watcher header opens.
template <class Record>
Record &RecordOf(UvWatcher *watcher) noexcept {
  return *reinterpret_cast<Record *>(watcher);
}

// A walk in list order. The next watcher is chosen before the current one is handed out.
class Walk {
 public:
  // What becomes of watchers that are appended while the last one is handed out. Most walks leave them to the next
  // pass: a hook that replaces itself would never let this one end.
  enum class Appended { kLeave, kVisit };

  explicit Walk(const UvLoop &loop, Appended appended = Appended::kLeave) noexcept
      : next_(loop.watchers), growing_(appended == Appended::kVisit ? &loop : nullptr), outer_(innermost_) {
    innermost_ = this;
  }
  ~Walk() { innermost_ = outer_; }
  Walk(const Walk &) = delete;
  Walk &operator=(const Walk &) = delete;

  // The next watcher, null at the end.
  UvWatcher *Next() noexcept {
    UvWatcher *watcher = next_;
    if (watcher != nullptr) next_ = watcher->next;
    return watcher;
  }

  // Every unlinking and every appending reports to the walks.
  static void OnUnlink(const UvWatcher *watcher) noexcept;
  static void OnAppend(UvWatcher *watcher) noexcept;

 private:
  [[gnu::tls_model("initial-exec")]] static constinit thread_local Walk *innermost_;

  UvWatcher *next_;
  const UvLoop *const growing_;  // the loop, when appended watchers are visited too
  Walk *const outer_;
};

// A callback of this watcher is on the stack.
class CallFrame {
 public:
  explicit CallFrame(UvWatcher *watcher) noexcept : watcher_(watcher), outer_(innermost_) { innermost_ = this; }
  ~CallFrame();
  CallFrame(const CallFrame &) = delete;
  CallFrame &operator=(const CallFrame &) = delete;

  // The watcher was freed while its callback ran: the record is still there, but belongs to no loop.
  bool freed() const noexcept { return freed_; }

  static bool Holds(const UvWatcher *watcher) noexcept { return innermost_ != nullptr && Find(watcher) != nullptr; }
  // Frees the record, now or when the last callback of it has returned.
  static void Free(UvWatcher *watcher) noexcept;

 private:
  static CallFrame *Find(const UvWatcher *watcher) noexcept;

  [[gnu::tls_model("initial-exec")]] static constinit thread_local CallFrame *innermost_;

  UvWatcher *const watcher_;
  CallFrame *const outer_;
  bool freed_ = false;
};

// How many watchers have been added or marked deleted, on any loop of this thread. While it does not change, what a
// walk has found holds, except that watchers may be gone.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local std::uint64_t listChanges;

// Called for every watcher that leaves its loop, before it is freed. There is one such hook: message watchers and the
// guards of their requests name each other.
using UnlinkHook = void (*)(UvWatcher &watcher) noexcept;
void SetUnlinkHook(UnlinkHook hook) noexcept;

// Whether the watcher is still on the loop. Destroying a loop frees its watchers without notifying their owners, so an
// owner asks here: an address that it remembers may dangle.
bool IsOnLoop(const UvLoop &loop, const UvWatcher *watcher) noexcept;

// Takes a watcher off its loop, with every forced event that names it, and frees it.
void RemoveWatcher(UvLoop &loop, UvWatcher *watcher) noexcept;

// The same for a deleted watcher that a walk has found, with its trace line.
void SweepWatcher(UvLoop &loop, UvWatcher *watcher) noexcept;

}  // namespace zor

#endif
