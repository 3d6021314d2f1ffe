#ifndef SDK_LOOP_CHILD_PROCESS_GATE_H
#define SDK_LOOP_CHILD_PROCESS_GATE_H

#include "common/unique_fd.h"

namespace zor {

// A pipe that holds the child back: nothing goes through it but the end of file.
class StartGate {
 public:
  bool Make() noexcept;
  int childEnd() const noexcept { return childEnd_.get(); }
  // In the parent, before and after its bookkeeping.
  void LeaveToChild() noexcept { childEnd_.reset(); }
  void Open() noexcept { parentEnd_.reset(); }
  // In the child.
  void LeaveToParent() noexcept { parentEnd_.reset(); }
  void Wait() const noexcept;

 private:
  UniqueFd childEnd_;
  UniqueFd parentEnd_;
};

}  // namespace zor

#endif
