// The life of a daemon that is a client of the bus: it joins, serves from the library's loop, and leaves. It also
// leaves, with a failure, when the message server ends: the supervisor of the daemons starts it again together with the
// server, and no unreachable daemon is reported as healthy.
#ifndef PROGRAMS_BUS_DAEMON_H
#define PROGRAMS_BUS_DAEMON_H

#include "programs/exit_code.h"
#include "programs/problem_log.h"
#include "programs/stop_signal.h"

namespace zor::daemon {

// Joins the bus under a name, says so on standard output and to the service manager, dispatches messages to their
// handlers until a signal arrives (kExitOk), and leaves the bus. kExitFailure, with a line, when there is no message
// server, it refuses the name or ends, or the loop cannot run. The loop feeds the service manager's watchdog.
ExitCode ServeBus(const char *name, const StopSignal &stop, ProblemLog &problems);

}  // namespace zor::daemon

#endif
