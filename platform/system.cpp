#include <zor/platform/system.h>

#include <unistd.h>

#include <cstdlib>
#include <ctime>

uint32_t ZOR_UTIL_GenRandomInteger(void) {
  return ::arc4random();
}

const char *ZOR_UTIL_GetCurrUTCTimeStamp(void) {
  thread_local char text[sizeof "YYYY-MM-DDThh:mm:ssZ"];
  const time_t now = std::time(nullptr);
  struct tm utc = {};
  if (::gmtime_r(&now, &utc) == nullptr || std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc) == 0) {
    text[0] = '\0';
  }
  return text;
}

uint16_t ZOR_UTIL_GetGlobalConfigId(void) {
  return 0;  // a plain host has no global configuration
}

// The saved user id keeps what was given up, so both directions are a change of the effective id only.
uint32_t ZOR_UTIL_UpRootPrivileges(void) {
  return ::seteuid(0) == 0 ? 0 : 1;
}

uint32_t ZOR_UTIL_DropAndroidRootPrivileges(void) {
  return ::seteuid(::getuid()) == 0 ? 0 : 1;
}
