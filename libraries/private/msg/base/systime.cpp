#include <zor/systime.h>

#include <sys/sysinfo.h>

#include <cstdio>
#include <ctime>

// Through the C library and not by number of the system call: numbers and layouts differ between 32-bit systems, and
// most systems read the clock without entering the kernel. The line of a failure keeps its old text.
uint32_t ZOR_UTIL_GetSysTime(ZOR_SYS_TIME *time) {
  if (time == nullptr) return 1;
  struct timespec now = {};
  if (::clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
    *time = {0, 0};
    std::perror("syscall:__NR_clock_gettime");
    return 1;
  }
  time->seconds = static_cast<uint32_t>(now.tv_sec);
  time->microseconds = static_cast<uint32_t>(now.tv_nsec / 1000);
  return 0;
}

uint32_t ZOR_UTIL_GetSysUpTime(void) {
  struct sysinfo info = {};
  return ::sysinfo(&info) == 0 ? static_cast<uint32_t>(info.uptime) : 0;
}
