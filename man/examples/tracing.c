#include <stdio.h>
#include <zor/log.h>
#include <zor/mlog.h>
#include <zor/trace.h>

#define TRACE(level, ...) ZOR_TRACE_PrintInfo(__FILE__, __LINE__, 0, "lamp", level, __VA_ARGS__)

int main(void) {
  /* Trace lines, for the developer. Nothing is printed until a level is set; settings of the server do that too. */
  TRACE(ZOR_TRACE_ERROR, "not printed");
  ZOR_TRACE_SetPackageLevel("lamp", ZOR_TRACE_WARNING);
  printf("enabled: %u %u\n", (unsigned)ZOR_TRACE_IsModuleEnabled("lamp", ZOR_TRACE_ERROR),
         (unsigned)ZOR_TRACE_IsModuleEnabled("lamp", ZOR_TRACE_INFO));
  ZOR_TRACE_SetOutputByString("file"); /* "stdout", "file", or "10.0.0.1:5000" for UDP */
  TRACE(ZOR_TRACE_ERROR, "bulb %d is broken", 2);
  TRACE(ZOR_TRACE_INFO, "not printed: info is above warning");
  printf("output: %u\n", (unsigned)ZOR_TRACE_GetOutput());

  /* A log line, for the device's maintainers: mlogserver stores it. */
  mlog_print("lamp", ZOR_MLOG_WARNING, "bulb %d is broken", 2);

  /* A log record, for users, would name an item instead of a text: ZOR_LOG_API_Record_Log. */
  printf("item: %s\n", ZOR_UTIL_LOG_GetLevelString(ZOR_LOG_WARNING, 0));
  return 0;
}

/* Prints:
 * enabled: 1 0
 * output: 1
 * item: Warning
 */
