#include "programs/version.h"

namespace zor::daemon {

const char *Version() {
  return ZOR_VERSION;
}

}  // namespace zor::daemon
