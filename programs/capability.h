// The rights of root that this process has.
#ifndef PROGRAMS_CAPABILITY_H
#define PROGRAMS_CAPABILITY_H

#include <linux/capability.h>

namespace zor::daemon {

// Whether the process has one, such as CAP_CHOWN, and may use it now.
bool HasCapability(unsigned number);

// A right that the process, if it has it, uses only where it is meant for: for the rest of the object's lifetime it is
// laid down. A process of root keeps it: what others protect from it is little.
class LaidDownCapability {
 public:
  explicit LaidDownCapability(unsigned number);
  LaidDownCapability(const LaidDownCapability &) = delete;
  LaidDownCapability &operator=(const LaidDownCapability &) = delete;
  ~LaidDownCapability() { Set(true); }

  // False when the system did not let it be laid down.
  bool valid() const { return !isHeld_ || isDown_; }
  // Takes it up for the call.
  template <typename Call>
  auto Use(Call call) const {
    Set(true);
    const auto result = call();
    Set(false);
    return result;
  }

 private:
  bool Set(bool on) const;

  unsigned number_;
  bool isHeld_;
  bool isDown_ = false;  // at first
};

}  // namespace zor::daemon

#endif
