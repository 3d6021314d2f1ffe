// Notifies the service manager that started this server, so that its clients are started once it serves. In a
// build without ZOR_SYSTEMD, or without NOTIFY_SOCKET, nothing is sent.
#ifndef PROGRAMS_SERVICE_MANAGER_H
#define PROGRAMS_SERVICE_MANAGER_H

namespace zor::daemon {

// From now on clients are served.
void TellReady();
// The process is ending.
void TellStopping();

}  // namespace zor::daemon

#endif
