#include "programs/service_manager.h"

#ifdef ZOR_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

namespace zor::daemon {
namespace {

// Best effort: a manager that cannot be notified relies on its own time limits.
void Tell([[maybe_unused]] const char *state) {
#ifdef ZOR_SYSTEMD
  static_cast<void>(::sd_notify(0, state));
#endif
}

}  // namespace

void TellReady() {
  Tell("READY=1");
}

void TellStopping() {
  Tell("STOPPING=1");
}

}  // namespace zor::daemon
