#include "programs/capability.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <array>

namespace zor::daemon {

bool HasCapability(unsigned number) {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> data{};
  if (::syscall(SYS_capget, &header, data.data()) != 0) return false;
  return (data[CAP_TO_INDEX(number)].effective & CAP_TO_MASK(number)) != 0;
}

}  // namespace zor::daemon
