#include "watchdog.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/uv_timer.h>

/* NOTIFY_SOCKET is a path, or an abstract name after '@'. */
static void Tell(const char *state) {
  const char *name = getenv("NOTIFY_SOCKET");
  struct sockaddr_un address = {.sun_family = AF_UNIX};
  if (name == NULL || strlen(name) >= sizeof address.sun_path) return;
  strcpy(address.sun_path, name);
  if (name[0] == '@') address.sun_path[0] = '\0';
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sendto(fd, state, strlen(state), MSG_NOSIGNAL, (const struct sockaddr *)&address,
         (socklen_t)(offsetof(struct sockaddr_un, sun_path) + strlen(name)));
  close(fd);
}

static void OnFeedDue(void *data) {
  (void)data;
  Tell("WATCHDOG=1");
}

/* 0: no watchdog, or one for another process. */
static uint32_t WatchdogMs(void) {
  const char *interval = getenv("WATCHDOG_USEC");
  const char *pid = getenv("WATCHDOG_PID");
  if (interval == NULL || (pid != NULL && atol(pid) != (long)getpid())) return 0;
  return (uint32_t)(strtoull(interval, NULL, 10) / 1000);
}

int ReportToManager(void) {
  const uint32_t interval = WatchdogMs();
  if (interval >= 2 && ZOR_UTIL_TimerAdd(interval / 2, 0, OnFeedDue, NULL) == NULL) return -1;
  Tell("READY=1");
  return 0;
}
