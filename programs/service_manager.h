// The protocol between a server and the service manager that started it: the environment variables and datagrams that
// systemd's manual documents for sd_notify(3), sd_watchdog_enabled(3) and sd_listen_fds(3). They are spoken directly,
// since the manager's own library maps several compression and cryptography libraries into each process.
//
// Without a manager (NOTIFY_SOCKET is unset) nothing is sent. A manager that does not read delays a server by 5 seconds
// at most for each datagram that matters, and not at all for the watchdog.
#ifndef PROGRAMS_SERVICE_MANAGER_H
#define PROGRAMS_SERVICE_MANAGER_H

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "common/unique_fd.h"

namespace zor::daemon {

// From now on clients are served.
void TellReady();
// The process is ending.
void TellStopping();
// The server is about to be replaced by a newer program, until TellReady reports the end of that, whatever it is.
void TellReloading();
// One line that the manager shows with the state of the service.
void TellStatus(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The descriptor store keeps duplicates of descriptors while the process is being replaced or has crashed. A name is
// at most 255 visible ASCII characters without ':'; several descriptors may have the same one.

// Whether there is a manager.
bool HasManager();
// Stores a duplicate, also of a connection whose peer has closed: its last words may still be unread. False when there
// is no manager or it did not take the datagram; a manager whose store is full or disabled does not report that.
bool StoreDescriptor(std::string_view name, int fd);
// Closes the stored duplicates of that name.
bool RemoveStoredDescriptors(std::string_view name);
// Stores a duplicate before the former ones of these names are closed; it also finds room where they leave the last.
bool ReplaceStoredDescriptors(const std::vector<std::string> &former, std::string_view name, int fd);

struct PassedDescriptor {
  std::string name;  // "unknown" if the manager gave none
  UniqueFd fd;
};
// The descriptors that this process was started with, stored ones and listening sockets, close-on-exec. The variables
// that describe them are removed, so that children and further calls see none.
std::vector<PassedDescriptor> TakePassedDescriptors();
// Takes the first of that name out of them; invalid if there is none.
UniqueFd TakePassed(std::vector<PassedDescriptor> &passed, std::string_view name);

// The watchdog: a manager that asked for it restarts a server whose loop no longer runs. The loop shortens its wait by
// TimeoutMs and calls Feed in each turn.
class Watchdog {
 public:
  using Clock = std::chrono::steady_clock;

  // Reads WATCHDOG_USEC and WATCHDOG_PID.
  Watchdog();

  bool enabled() const { return period_ > Clock::duration::zero(); }
  // Half of the manager's interval; 0 without a watchdog.
  std::chrono::milliseconds period() const { return std::chrono::duration_cast<std::chrono::milliseconds>(period_); }
  // The time-out of the loop's wait, in which the next feed is due: at most `ownMs`, where -1 means none.
  int TimeoutMs(int ownMs) const;
  // Feeds when half of the interval has passed since the last time.
  void Feed();

 private:
  Clock::duration period_{};
  Clock::time_point due_{};
};

}  // namespace zor::daemon

#endif
