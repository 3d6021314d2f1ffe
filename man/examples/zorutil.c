#include <stdio.h>
#include <sys/wait.h>
#include <zor/zorutil.h>

int main(void) {
  const int status = ZOR_UTIL_ExecCmdNoHang("exit 3"); /* blocks, for at most 40 s */
  if (status == -1 || !WIFEXITED(status)) return 1;
  printf("exit code %d\n", WEXITSTATUS(status));
  printf("no such process: %d\n", (int)ZOR_UTIL_GetPid("no-such-program-anywhere"));
  return 0;
}

/* Prints:
 * exit code 3
 * no such process: -1
 */
