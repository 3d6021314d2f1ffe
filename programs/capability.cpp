#include "programs/capability.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace zor::daemon {
namespace {

class Capabilities {
 public:
  Capabilities() { valid_ = ::syscall(SYS_capget, &header_, data_.data()) == 0; }

  bool IsEffective(unsigned number) const { return valid_ && (Word(number).effective & CAP_TO_MASK(number)) != 0; }
  bool SetEffective(unsigned number, bool on) {
    auto &effective = data_[CAP_TO_INDEX(number)].effective;
    effective = on ? effective | CAP_TO_MASK(number) : effective & ~CAP_TO_MASK(number);
    return valid_ && ::syscall(SYS_capset, &header_, data_.data()) == 0;
  }

 private:
  const __user_cap_data_struct &Word(unsigned number) const { return data_[CAP_TO_INDEX(number)]; }

  __user_cap_header_struct header_ = {_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> data_{};
  bool valid_;
};

}  // namespace

bool HasCapability(unsigned number) {
  return Capabilities().IsEffective(number);
}

LaidDownCapability::LaidDownCapability(unsigned number)
    : number_(number), isHeld_(::geteuid() != 0 && HasCapability(number)) {
  isDown_ = Set(false);
}

// What the caller has failed with stays in errno.
bool LaidDownCapability::Set(bool on) const {
  const int error = errno;
  const bool isSet = isHeld_ && Capabilities().SetEffective(number_, on);
  errno = error;
  return isSet;
}

}  // namespace zor::daemon
