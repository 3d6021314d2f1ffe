// The life of a daemon that is a client of the bus: it joins, serves from the library's loop, and leaves. It also
// leaves, with a failure, when the message server ends: the supervisor of the daemons starts it again together with the
// server, and no unreachable daemon is reported as healthy.
#ifndef PROGRAMS_BUS_DAEMON_H
#define PROGRAMS_BUS_DAEMON_H

#include "programs/exit_code.h"
#include "programs/problem_log.h"
#include "programs/stop_signal.h"

namespace zor::daemon {

// Joins the bus under a name and says so on standard output and to the service manager. kExitFailure, with a line, when
// there is no server or it refuses the name. Handlers may be registered before or after; they are called from ServeBus.
ExitCode JoinBus(const char *name, ProblemLog &problems);

// Dispatches messages to their handlers until a signal arrives (kExitOk) or the message server ends or the loop
// cannot run (kExitFailure, with a line), and leaves the bus. The loop feeds the service manager's watchdog.
ExitCode ServeBus(const StopSignal &stop, ProblemLog &problems);

}  // namespace zor::daemon

#endif
