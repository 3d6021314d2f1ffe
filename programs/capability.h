// The rights of root that this process has.
#ifndef PROGRAMS_CAPABILITY_H
#define PROGRAMS_CAPABILITY_H

#include <linux/capability.h>

namespace zor::daemon {

// Whether the process has one, such as CAP_CHOWN, and may use it now.
bool HasCapability(unsigned number);

}  // namespace zor::daemon

#endif
