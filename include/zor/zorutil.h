/*
 * Shell commands and the lookup of processes by name.
 *
 * 1. All of it blocks the calling thread: the event loop is blocked meanwhile.
 * 2. A process name is any part of a command line or of a name, compared with regard to case: "dns" finds both
 *    "dnsmasq" and "/bin/dnsd". The calling process is found like any other.
 * 3. When the processes cannot be listed, the lookups print "cms:Cannot open /proc" on standard output, without a line
 *    end.
 */
#ifndef ZOR_ZORUTIL_H
#define ZOR_ZORUTIL_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* What ZOR_UTIL_ExecCmdNoHang does with a command. Any other mode is as ZOR_EXEC_LIMITED. Used with
   ZOR_EXEC_CTX and ZOR_UTIL_ExecCmdNoHang. */
#define ZOR_EXEC_LIMITED 0u   /* run it, for at most 40 s */
#define ZOR_EXEC_UNLIMITED 1u /* run it, however long it takes */
#define ZOR_EXEC_RECORD 3u    /* append it as a line to a file instead */

typedef struct ZOR_EXEC_CTX {
  uint32_t mode;
  const char *recordPath; /* the file of ZOR_EXEC_RECORD */
} ZOR_EXEC_CTX;

/* How ZOR_UTIL_ExecCmdNoHang runs a command. A daemon may point it at a record of its own; null, the initial value,
   means ZOR_EXEC_LIMITED. Read without a lock. */
ZOR_API extern ZOR_EXEC_CTX *g_pstExecCtx;

/*
 * Runs a command with "/bin/sh -c" as g_pstExecCtx says. Returns its raw wait status; 0 when it was recorded; -1 for
 * null, when it could not be started, or when it was killed for taking too long, after
 * "\r\nZOR_UTIL_ExecCmdNoHang timeout, Command; kill %d  pid\r\n" with its process id on standard output.
 * A command that cannot be recorded is not run either: "%s %d %s(): failed to record command", with source file, line
 * and function, and 0.
 */
ZOR_API int32_t ZOR_UTIL_ExecCmdNoHang(const char *command);

/*
 * Runs a command with "/bin/sh -c" and polls for its end for that many seconds (0: 20; above 4294 the number of polls
 * wraps round and the wait is shorter). Returns the raw wait status of a command that ended or was stopped; a stopped
 * one stays as it is. -1 for null, when no process can be started, or when the time is over: the command is then
 * sent SIGTERM, "\r\nNotice Command; Pid = %d\r\n" goes to standard output, and its end is not waited for.
 */
ZOR_API int32_t ZOR_UTIL_ExecCmd_ByTime(const char *command, uint32_t seconds);

/*
 * The ids of all processes whose command line contains the name, in a malloc block that the caller frees: in the order
 * of "/proc" and ended by 0. Compared are the first 237 bytes of the command line, up to an empty argument or a line
 * end, with the arguments put together without separators: "sh-cls" for sh -c ls. The empty name finds every process
 * that has a command line.
 * When there is no process, the block holds -1 alone, with no 0 behind it; for the name "init" it holds 1 and 0.
 * Null for null, when "/proc" cannot be opened, or when there is no memory. More than 8 MiB of ids are refused with
 * "error: zor_realloc want to malloc 4M, return NULL, malloc len=%d\n".
 */
ZOR_API int32_t *ZOR_UTIL_FindPidByName(const char *name);

/* The first process that ZOR_UTIL_FindPidByName finds for the name without its blanks, -1 when it finds none. 0 for
   null, a name of more than 239 characters, blanks included, or a failed lookup. */
ZOR_API int32_t ZOR_UTIL_GetPid(const char *name);

/* The first process, kernel threads included, with the name in the first line of "/proc/PID/status" ("Name:", a tab
   and the name of the program, all of which is searched). -1 when there is none, or for null. */
ZOR_API int32_t ZOR_UTIL_FindKernelPidByName(const char *name);

ZOR_END_DECLS

#endif
