/*
 * Child processes of the loop: programs that run beside the daemon, with callbacks for their end and their redirected
 * standard streams; one that the daemon waits for; and command lines that run under the account of their program.
 *
 * 1. Children are spawned on the default loop (while a synchronous spawn runs, its private loop): on any other, their
 *    end is not noticed. The first spawn installs a handler of SIGCHLD that waits for every child of the process,
 *    however it was started. Code that waits for a child without the loop blocks SIGCHLD from before the fork until
 *    the wait has ended.
 * 2. A child that has ended is reaped in the handler and finished in the next idle pass of the loop: its redirected
 *    streams are drained, its exit callback is called, and its record is freed at the next sweep. Do not use the
 *    record after the exit callback.
 * 3. The options are not used after the spawn; the child has copies.
 * 4. Texts that are printed in the child go to the child's standard output.
 */
#ifndef ZOR_UV_PROCESS_H
#define ZOR_UV_PROCESS_H

#include <stdint.h>
#include <sys/types.h>
#include <zor/export.h>
#include <zor/uv_io.h>
#include <zor/uv_loop.h>

ZOR_BEGIN_DECLS

struct UvProcess;
struct UvProcessOptions;

/* Option bits: what is done in the child, and which of its standard streams are redirected. Used with
   UvProcessOptions. */
#define UV_PROCESS_SETUID UINT32_C(0x1)      /* setuid(uid), after setgroups */
#define UV_PROCESS_SETEUID UINT32_C(0x2)     /* seteuid(uid) */
#define UV_PROCESS_SETGID UINT32_C(0x4)      /* setgid(gid), after setgroups and initgroups of uid's account */
#define UV_PROCESS_NEW_SESSION UINT32_C(0x8) /* setsid() */
#define UV_PROCESS_UMASK UINT32_C(0x10)      /* umask(umask) */
#define UV_PROCESS_NO_CORE UINT32_C(0x20)    /* the soft limit of core files becomes 0 */
#define UV_PROCESS_STDIN UINT32_C(0x40)      /* a pipe on standard input, if there is an inputCallback */
#define UV_PROCESS_STDOUT UINT32_C(0x80)     /* a pipe on standard output, if there is an outputCallback */
#define UV_PROCESS_STDERR UINT32_C(0x100)    /* a pipe on standard error, if there is an outputCallback */

/* Called in the signal handler, with async-signal-safe calls only, when the child is reaped. Mind the order of the last
   two arguments. */
typedef void (*UV_PROCESS_REAP)(struct UvProcess *process, int32_t pid, int32_t termSignal, int32_t exitCode);
/* Called in the idle pass: exit code first. One of the two is 0. */
typedef void (*UV_PROCESS_EXIT)(struct UvProcess *process, int32_t pid, int32_t exitCode, int32_t termSignal);
/* Asked in the child: nonzero keeps the descriptor open for the program, also one that is close-on-exec in the parent,
   as the library's own sockets are. */
typedef uint32_t (*UV_PROCESS_KEEP_FD)(const struct UvProcessOptions *options, int32_t fd);
/*
 * A redirected output may be read; streamId is UV_PROCESS_STDOUT or UV_PROCESS_STDERR. It must read, and must call
 * ZOR_UV_ProcessDeleteRedirectIO at the end of file: when the child has ended, it is called until it does, whether
 * there is something to read or not. It reads all that the child has written, and then the end of file, even if other
 * processes have the pipe open.
 */
typedef void (*UV_PROCESS_OUTPUT)(struct UvProcess *process, UvIO *stream, uint32_t streamId);
/* The redirected standard input may be written. ZOR_UV_ProcessDeleteRedirectIO closes it. */
typedef void (*UV_PROCESS_INPUT)(struct UvProcess *process, UvIO *stream);

typedef struct UvProcessOptions {
  UV_PROCESS_REAP reapCallback; /* may be null, like the other callbacks */
  UV_PROCESS_EXIT exitCallback;
  UV_PROCESS_KEEP_FD keepFd;
  const char *file; /* the program, looked up on PATH as execvp does; required */
  UV_PROCESS_OUTPUT outputCallback;
  UV_PROCESS_INPUT inputCallback;
  void *data;              /* becomes the data of the process */
  const char *const *args; /* null-terminated, with one argument at least */
  const char *const *env;  /* replaces the environment, PATH included, unless null */
  const char *cwd;         /* working directory, unless null */
  uint32_t flags;
  uint32_t uid;
  uint32_t gid;
  uint32_t groupCount;
  const gid_t *groups;
  uint32_t umask;
} UvProcessOptions;

/* Callers read it. */
typedef struct UvProcess {
  UvWatcher header; /* header.data is the data of the options */
  int32_t pid;      /* -1 once finished */
  UV_PROCESS_EXIT exitCallback;
  UV_PROCESS_REAP reapCallback;
  UV_PROCESS_OUTPUT outputCallback;
  UV_PROCESS_INPUT inputCallback;
  int32_t waitStatus; /* as waitpid gave it */
  uint32_t exited;    /* 1 between reaping and finishing */
  UvIO *stdio[3];     /* our ends of the pipes to its standard streams, or null */
  char *cmdLine;      /* the arguments with blanks between, in the same block */
} UvProcess;

/*
 * Starts a child. In the child, in this order: new session; descriptors closed, from 3 to the highest that the loop
 * has watched (to one more with redirected streams; to 50 if that is below 4); working directory; groups; gid; euid;
 * uid; environment; umask; core limit; standard streams. Of these, a working directory, gid, euid or uid that cannot be
 * set ends it with exit code 127; "setgroups error." and "initgroups error" are printed only. When the program cannot
 * be executed, it prints "execve process [%s] failed with %d.\n" (file, errno) and ends with 127. A stream for which
 * there is no pipe is not redirected. *outProcess (outProcess may be null) is cleared first, and gets the record, which
 * the loop frees. Returns 0; ZOR_E_ARGUMENT for null options, file or args, or no argument; ZOR_E_NO_MEMORY; ZOR_E_IO
 * for any other failure. "strcpy_s() fail" is printed for an argument that cmdLine has no room for.
 */
ZOR_API uint32_t ZOR_UV_ProcessSpawn(UvLoop *loop, UvProcess **outProcess, const UvProcessOptions *options);

/* Sends a signal to a child that has not ended. Null is ignored. */
ZOR_API void ZOR_UV_ProcessKill(UvProcess *process, int32_t signalNumber);

/* Closes our end of a redirected stream, whose data becomes null. Null, and a stream of another process, is
   ignored. */
ZOR_API void ZOR_UV_ProcessDeleteRedirectIO(UvProcess *process, UvIO *stream);

/*
 * Runs a child to its end in a private loop, which is the default loop meanwhile: callbacks of the child are called,
 * nothing else. Children of the real default loop that end meanwhile are never finished. When nothing happens for
 * idleTimeMs (0: without limit), the child is left running and its redirected pipes open.
 * Returns the exit code; ZOR_E_TIMEOUT when signal 9 killed the child, 0 for any other signal; 0 when nothing happened
 * for too long; ZOR_E_BUSY inside another synchronous spawn; else what ZOR_UV_ProcessSpawn returns.
 */
ZOR_API uint32_t ZOR_UV_ProcessSpawnSync(const UvProcessOptions *options, uint32_t idleTimeMs);

/* The directories in which ZOR_UTIL_ExecCmdWithPermissions and its like look for a program without '/': "/bin",
   "/sbin", "/usr/bin", "/system/bin", "/app/bin" and null. A daemon may set others. */
ZOR_API extern const char *g_apcBinSearchPath[6];

/*
 * Starts a command line on the default loop: split as ZOR_UTIL_ParseArgs does, 511 characters at most, less an '&' in
 * the last place. If there is an account with the name of the program, as it is typed, the program runs as this user
 * with this user's groups. Returns its process id; -1 for null, a line that cannot be split or is blank, a program that
 * is not found, or when it cannot be started.
 */
ZOR_API int32_t ZOR_UTIL_ExecCmdWithPermissions(const char *command);

/* Does the same with an argument vector and waits: returns what ZOR_UTIL_WaitForPidEx returns for the child and these
   parameters. -1 for null, a program that is not found or when there is no pipe; ZOR_E_IO when no process can
   be started. */
ZOR_API int32_t ZOR_UTIL_ExecCmdWithPermissionsMorePara(const char *const *args, int32_t timeLimitMs,
                                                        int32_t signalNumber, int32_t graceMs);

/* The same for a command line. -1 for null or a line that cannot be split or is blank. */
ZOR_API int32_t ZOR_UTIL_ExecCmdWithPermissionsFullEx(const char *command, int32_t timeLimitMs, int32_t signalNumber,
                                                      int32_t graceMs);

ZOR_END_DECLS

#endif
