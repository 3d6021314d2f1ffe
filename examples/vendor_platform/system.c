/* zor/platform/system.h. */
#include <stdio.h>
#include <stdlib.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>
#include <zor/platform/file.h>
#include <zor/platform/system.h>

/* The kernel gives so few bytes as soon as it has been booted. Names of body files must not be guessed, so there is no
   other source. */
uint32_t ZOR_UTIL_GenRandomInteger(void) {
  uint32_t number = 0;
  if (getentropy(&number, sizeof number) != 0) abort();
  return number;
}

const char *ZOR_UTIL_GetCurrUTCTimeStamp(void) {
  static _Thread_local char text[sizeof "YYYY-MM-DDThh:mm:ssZ"];
  const time_t now = time(NULL);
  struct tm utc;
  if (gmtime_r(&now, &utc) == NULL || strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc) == 0) text[0] = '\0';
  return text;
}

/* The first two bytes of the board's factory settings, if it has any. */
uint16_t ZOR_UTIL_GetGlobalConfigId(void) {
  char path[256];
  unsigned char bytes[2] = {0, 0};
  FILE *file = ZOR_UTIL_FixedPath("/etc/example-factory", path, sizeof path) > 0 ? fopen(path, "rbe") : NULL;
  if (file == NULL) return 0;
  const size_t count = fread(bytes, 1, sizeof bytes, file);
  fclose(file);
  const unsigned number = count == sizeof bytes ? bytes[0] * 256u + bytes[1] : 0;
  return (uint16_t)number;
}

/* What was given up is in the saved user id. */
uint32_t ZOR_UTIL_UpRootPrivileges(void) {
  return seteuid(0) == 0 ? 0 : 1;
}

uint32_t ZOR_UTIL_DropAndroidRootPrivileges(void) {
  return seteuid(getuid()) == 0 ? 0 : 1;
}
