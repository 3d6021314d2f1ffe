/* zor/platform/process.h. */
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <zor/platform/file.h>
#include <zor/platform/limits.h>
#include <zor/platform/process.h>

static int IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n';
}

/* Copies one argument; null when a quote is open or a backslash ends the line. */
static const char *CopyArgument(const char *at, char **out) {
  char quote = '\0';
  for (; *at != '\0' && (quote != '\0' || !IsBlank(*at)); ++at) {
    const int isEscape = *at == '\\' && quote != '\'' && (quote == '\0' || strchr("$`\"\\\n", at[1]) != NULL);
    if (isEscape && at[1] == '\0') return NULL;
    if (isEscape) {
      if (*++at != '\n') *(*out)++ = *at;
    } else if (*at == quote) {
      quote = '\0';
    } else if (quote == '\0' && (*at == '\'' || *at == '"')) {
      quote = *at;
    } else {
      *(*out)++ = *at;
    }
  }
  *(*out)++ = '\0';
  return quote == '\0' ? at : NULL;
}

/* The texts are in the same block, behind the pointers: no argument is longer than what it was made from. */
char **ZOR_UTIL_ParseArgs(const char *commandLine, uint32_t *count) {
  if (count != NULL) *count = 0;
  if (commandLine == NULL) return NULL;
  const size_t length = strlen(commandLine);
  const size_t most = length / 2 + 2;
  char **arguments = calloc(1, most * sizeof *arguments + length + 1);
  if (arguments == NULL) return NULL;
  char *text = (char *)(arguments + most);
  uint32_t found = 0;
  const char *at = commandLine;
  while (at != NULL) {
    while (IsBlank(*at) || (at[0] == '\\' && at[1] == '\n')) at += *at == '\\' ? 2 : 1;
    if (*at == '\0') break;
    arguments[found++] = text;
    at = CopyArgument(at, &text);
  }
  if (at == NULL) {
    free(arguments);
    return NULL;
  }
  if (count != NULL) *count = found;
  return arguments;
}

void ZOR_UTIL_FreeArgs(char **arguments) {
  free(arguments);
}

static int IsProgram(const char *path) {
  struct stat status;
  return stat(path, &status) == 0 && S_ISREG(status.st_mode) && access(path, X_OK) == 0;
}

uint32_t ZOR_UTIL_GetExeFullPath(const char *name, const char *const *directories, char *out, size_t size) {
  if (out == NULL || size == 0) return 1;
  out[0] = '\0';
  if (name == NULL || directories == NULL || *name == '\0') return 1;
  static const char *const kNone[] = {"", NULL};
  const int isPath = strchr(name, '/') != NULL;
  for (const char *const *each = isPath ? kNone : directories; *each != NULL; ++each) {
    const int length = snprintf(out, size, "%s%s%s", *each, isPath ? "" : "/", name);
    if (length > 0 && (size_t)length < size && IsProgram(out)) return 0;
  }
  out[0] = '\0';
  return 1;
}

static long long NowMs(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (long long)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/* The child's id when it has ended, 0 when the time is over, -1 when it is no child. */
static pid_t Await(pid_t pid, int32_t timeLimitMs, int *status) {
  const long long deadline = NowMs() + timeLimitMs;
  for (;;) {
    const pid_t ended = waitpid(pid, status, timeLimitMs < 0 ? 0 : WNOHANG);
    if (ended > 0 || (ended < 0 && errno != EINTR)) return ended;
    if (timeLimitMs >= 0 && NowMs() >= deadline) return 0;
    const struct timespec nap = {0, 2000000};
    if (ended == 0) nanosleep(&nap, NULL);
  }
}

/* A loop's handler reaps all children: it must not run while one is waited for here. */
static sigset_t BlockChildSignal(void) {
  sigset_t blocked, before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGCHLD);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  return before;
}

int32_t ZOR_UTIL_ForkProcessSys(const char *command, int32_t timeLimitMs, int32_t *status, uint32_t *timedOut) {
  if (command == NULL) return -1;
  const sigset_t before = BlockChildSignal();
  const pid_t pid = fork();
  if (pid == 0) {
    pthread_sigmask(SIG_SETMASK, &before, NULL);
    execl("/bin/sh", "sh", "-c", command, NULL);
    _exit(127);
  }
  if (pid < 0) perror("fork");
  int raw = 0;
  const pid_t ended = pid < 0 ? -1 : Await(pid, timeLimitMs, &raw);
  pthread_sigmask(SIG_SETMASK, &before, NULL);
  if (ended > 0 && status != NULL) *status = raw;
  if (ended == 0 && timedOut != NULL) *timedOut = 1;
  return ended < 0 ? -1 : pid;
}

int32_t ZOR_UTIL_WaitForPidEx(int32_t pid, int32_t timeLimitMs, int32_t signalNumber, int32_t graceMs) {
  if (pid <= 0) return -1;
  const sigset_t before = BlockChildSignal();
  int status = 0;
  pid_t ended = Await(pid, timeLimitMs, &status);
  if (ended == 0 && signalNumber != 0) {
    kill(pid, signalNumber);
    ended = Await(pid, graceMs > 0 ? graceMs : 0, &status);
    if (ended == 0) {
      kill(pid, SIGKILL);
      ended = Await(pid, -1, &status);
    }
  }
  pthread_sigmask(SIG_SETMASK, &before, NULL);
  return ended > 0 ? status : -1;
}

uint32_t ZOR_UTIL_Reboot(uint32_t reason) {
  char path[2];
  if (ZOR_UTIL_FixedPath("/", path, sizeof path) != 1) {
    fprintf(stderr, "reboot for reason %u refused: this system is a directory\n", reason);
    return 1;
  }
  fprintf(stderr, "reboot for reason %u\n", reason);
  int32_t status = -1;
  return ZOR_UTIL_ForkProcessSys("/sbin/reboot", ZOR_REBOOT_WAIT_MS, &status, NULL) > 0 && status == 0 ? 0 : 1;
}
