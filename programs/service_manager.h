// What a server tells the service manager that has started it, so that others are started when it can serve them. In a
// build without ZOR_SYSTEMD, or when nobody asks (NOTIFY_SOCKET), nothing is told.
#ifndef PROGRAMS_SERVICE_MANAGER_H
#define PROGRAMS_SERVICE_MANAGER_H

namespace zor::daemon {

// From now on clients are served.
void TellReady();
// The process is on its way out.
void TellStopping();

}  // namespace zor::daemon

#endif
