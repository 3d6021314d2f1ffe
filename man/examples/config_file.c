#include <stdio.h>
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>
#include <zor/platform/file.h>

int main(void) {
  char path[256];
  ZOR_UTIL_FixedPath("/var/example.db", path, sizeof path);
  ZOR_DBSetPara(0x70000002, 0, "on", sizeof "on");
  if (ZOR_STORE_WriteFile(path, ZOR_STORE_CONFIGURATION) != ZOR_STORE_OK) return 1;
  ZOR_DBSetPara(0x70000002, 0, "off", sizeof "off");
  if (ZOR_STORE_ReadFile(path, ZOR_STORE_CONFIGURATION) != ZOR_STORE_OK) return 1;
  char value[8] = "";
  ZOR_DBGetPara(0x70000002, 0, value, sizeof value - 1);
  printf("%s\n", value);
  return 0;
}

/* Prints:
 * on
 */
