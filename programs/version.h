// The version of this build.
#ifndef PROGRAMS_VERSION_H
#define PROGRAMS_VERSION_H

namespace zor::daemon {

// As in "1.0.1".
const char *Version();

}  // namespace zor::daemon

#endif
