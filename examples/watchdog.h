/* Reports a daemon of the library to the service manager, without the manager's own library. Copy both files. */
#ifndef EXAMPLES_WATCHDOG_H
#define EXAMPLES_WATCHDOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Call it once the handlers are registered, before ZOR_MSG_GetAndDispatch. Reports that the daemon is ready
   (Type=notify), and lets a timer of the default loop feed the watchdog (WatchdogSec=) at half of its interval: a
   handler that does not return lets the manager restart the daemon. Does nothing without a manager; returns 0, or -1
   when memory runs out. */
int ReportToManager(void);

#ifdef __cplusplus
}
#endif

#endif
