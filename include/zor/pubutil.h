/*
 * Process helpers: dynamically started applications, a script for the web daemon, the kernel's version class.
 *
 * 1. A status is one of <zor/status.h>. What sends returns the statuses of ZOR_MSG_Send, what waits those of
 *    ZOR_MSG_SendAndRecv. All of it belongs to the loop's thread.
 * 2. Names are at most 11 characters; longer ones are cut.
 * 3. The message server routes the requests to the daemon that keeps the dynamic applications; the values and results
 *    are that daemon's.
 */
#ifndef ZOR_PUBUTIL_H
#define ZOR_PUBUTIL_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/limits.h>

ZOR_BEGIN_DECLS

/* To the web daemon, one-way: a script to run. Body: the target's name (ZOR_LUA_TARGET_SIZE bytes, zero-padded), then
   the script with its NUL. Used with ZOR_UTIL_PostLua. */
#define ZOR_MSG_POST_LUA UINT32_C(0x490C)
#define ZOR_LUA_DAEMON_NAME "web"

/* The class of the kernel: 0 for a release that contains "2.6.21", 2 for one that contains "2.6.36", 1 for any other or
   none. */
ZOR_API uint32_t ZOR_UTIL_GetLinuxVersion(void);

/*
 * Reports that the named application has a new value. A nonzero value of another application than this process first
 * asks that application to exit and waits for its reply, at most g_ulSafeExitMsgTimeout milliseconds; prints
 * "==========================ZOR_UTIL_UpdateDynAppListenFd app name %s should stop.\n" before and, when that failed,
 * "============================UTilSafeExitProcesses fail to ZOR_MSG_SendAndRecv, pcName=%s, ret=%d\n". The new value
 * is sent in any case. Returns the status of that; 1 for a null name.
 */
ZOR_API uint32_t ZOR_UTIL_UpdateDynAppListenFd(const char *name, uint32_t value);

/* The same with value 1 for status 0, which stops the application, and value 0 for any other status. */
ZOR_API uint32_t ZOR_UTIL_UpdateDynAppStatus(const char *name, uint32_t status);

/* The same with value 2, which stops the application. */
ZOR_API uint32_t ZOR_UTIL_RestartDynApp(const char *name);

/* Asks for the end of all dynamic applications and waits up to 20 s. Returns the reply's result, or the status of the
   failure; the two may coincide. */
ZOR_API uint32_t ZOR_UTIL_KillAllDynApp(void);

/* Asks the web daemon to run a script; target is cut to 255 characters. Takes a sequence number. Returns the status of
   the send; 1 for null, when there is no memory, and for a message of more than 8 MiB, which also prints the allocation
   guard's line. */
ZOR_API uint32_t ZOR_UTIL_PostLua(const char *target, const char *script);

ZOR_END_DECLS

#endif
