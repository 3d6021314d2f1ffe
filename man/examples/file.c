#include <stdio.h>
#include <stdlib.h>
#include <zor/platform/file.h>

int main(void) {
  char path[256]; /* beneath $ZOR_ROOT when that is set */
  if (ZOR_UTIL_FixedPath("/var/example.txt", path, sizeof path) == 0) return 1;
  if (ZOR_UTIL_WriteBufToFile(path, "hello", 5) != ZOR_FILE_OK) return 1;
  char *text = ZOR_UTIL_StrFileToBuf(path);
  printf("%s\n", text != NULL ? text : "cannot be read");
  free(text);
  return 0;
}

/* Prints:
 * hello
 */
