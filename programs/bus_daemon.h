// The life of a daemon that is a client of the bus: it joins, serves from the library's loop, and leaves. When the
// message server ends it keeps running, and joins the bus again as soon as there is a server.
#ifndef PROGRAMS_BUS_DAEMON_H
#define PROGRAMS_BUS_DAEMON_H

#include "programs/exit_code.h"
#include "programs/problem_log.h"
#include "programs/stop_signal.h"

namespace zor::daemon {

// Is notified, from the loop, of what becomes of a daemon's connection to the bus.
class BusListener {
 public:
  BusListener() = default;
  BusListener(const BusListener &) = delete;
  BusListener &operator=(const BusListener &) = delete;
  virtual ~BusListener() = default;

  // The name has been granted. Only after kExitOk does the daemon say that it is on the bus, and dispatch messages:
  // whatever others may rely on by then must be done here. Any other code ends it.
  virtual ExitCode OnJoined() = 0;
  // Pending requests end next.
  virtual void OnBusLost() = 0;
  // The name is back, and subscriptions are repeated.
  virtual void OnRejoined() = 0;
  // The daemon leaves the bus next.
  virtual void OnLeaving() = 0;
};

// Joins the bus under a name, says so on standard output and to the service manager, dispatches messages to their
// handlers until a signal arrives (kExitOk), and leaves the bus. kExitFailure, with a line, when there is no message
// server at the start, it refuses the name then, or the loop cannot run; the listener's code when that refuses. Lines
// say when the server is gone and when the daemon is on the bus again. The loop feeds the service manager's watchdog.
ExitCode ServeBus(const char *name, const StopSignal &stop, ProblemLog &problems, BusListener *listener = nullptr);

}  // namespace zor::daemon

#endif
