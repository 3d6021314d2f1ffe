/* Command lines, programs and child processes. */
#ifndef ZOR_PLATFORM_PROCESS_H
#define ZOR_PLATFORM_PROCESS_H

#include <stddef.h>
#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/*
 * Splits a command line into its arguments at blanks, tabs and line ends, as a shell does that expands nothing:
 * 'single quotes' keep everything, "double quotes" keep all but a backslash before one of $ ` " \ or a line end, and a
 * backslash elsewhere keeps the next character. A backslash before a line end joins the lines. Quotes may be inside
 * an argument, and '' is an empty one. Every other character stands for itself.
 * Returns a null-terminated array, which ZOR_UTIL_FreeArgs releases, with *count (unless count is null) arguments: none
 * for a blank line. Null, with *count 0, for null, an open quote, a backslash at the end, or when there is no memory.
 */
ZOR_API char **ZOR_UTIL_ParseArgs(const char *commandLine, uint32_t *count);

/* Releases the arguments. Null is a no-op. */
ZOR_API void ZOR_UTIL_FreeArgs(char **arguments);

/* The full path of a program: the first directory of a null-terminated array that holds an executable regular file of
   that name; a name with a '/' is used as it is. Returns 0; 1, with out empty, when there is none, it does not fit
   into size bytes, or an argument is null. */
ZOR_API uint32_t ZOR_UTIL_GetExeFullPath(const char *name, const char *const *directories, char *out, size_t size);

/*
 * Runs a command with "/bin/sh -c" and waits for its end, at most timeLimitMs milliseconds (below 0: without limit).
 * Returns the child's process id; -1 when it could not be started (the reason goes to standard error), or when the
 * process ignores SIGCHLD, so that its end cannot be seen.
 * *status becomes the raw wait status of a child that ended. When the time is over first, *timedOut becomes 1 and
 * *status is untouched: the child keeps running, for the caller to kill and to wait for. The outputs may be null.
 * SIGCHLD is blocked meanwhile, so that no handler takes the child away; the child does not inherit that.
 */
ZOR_API int32_t ZOR_UTIL_ForkProcessSys(const char *command, int32_t timeLimitMs, int32_t *status, uint32_t *timedOut);

/*
 * Waits for a child to end, at most timeLimitMs milliseconds (below 0: without limit). When the time is over and
 * signalNumber is not 0, sends that signal, waits up to graceMs more, and then kills the child for good.
 * Returns the raw wait status; -1 when the child still runs, or pid is no child (any more). A process with a SIGCHLD
 * handler that waits for children blocks SIGCHLD from before its fork until this returns.
 */
ZOR_API int32_t ZOR_UTIL_WaitForPidEx(int32_t pid, int32_t timeLimitMs, int32_t signalNumber, int32_t graceMs);

/* Restarts the device in good order; the argument is a reason that goes to standard error. Returns 0 when the system
   has accepted the order; 1 when it refuses. A system that runs inside a directory (see ZOR_UTIL_FixedPath) refuses:
   the machine around it is not its own. */
ZOR_API uint32_t ZOR_UTIL_Reboot(uint32_t reason);

ZOR_END_DECLS

#endif
