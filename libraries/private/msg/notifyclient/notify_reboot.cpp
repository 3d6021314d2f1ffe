#include "notifyclient/notify_reboot.h"

#include <sys/wait.h>
#include <unistd.h>
#include <zor/platform/system.h>

#include <cerrno>

namespace zor::notify {

// The command runs as a grandchild: no process waits for it, and init reaps it.
void StartReboot() noexcept {
  ZOR_UTIL_UpRootPrivileges();
  const pid_t child = ::fork();
  if (child < 0) return;
  if (child == 0) {
    if (::fork() == 0) ::execlp("reboot", "reboot", nullptr);
    ::_exit(0);
  }
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace zor::notify
