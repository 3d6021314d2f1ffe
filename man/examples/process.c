#include <stdio.h>
#include <sys/wait.h>
#include <zor/platform/process.h>

int main(void) {
  uint32_t count = 0;
  char **args = ZOR_UTIL_ParseArgs("ping -c 1 'my host'", &count);
  if (args == NULL) return 1;
  printf("%u arguments, the last is: %s\n", (unsigned)count, args[count - 1]);
  ZOR_UTIL_FreeArgs(args);

  int32_t status = 0;
  uint32_t timedOut = 0;
  if (ZOR_UTIL_ForkProcessSys("exit 4", 10000, &status, &timedOut) < 0 || timedOut) return 1;
  printf("exit code %d\n", WEXITSTATUS(status));
  return 0;
}

/* Prints:
 * 4 arguments, the last is: my host
 * exit code 4
 */
