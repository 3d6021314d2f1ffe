#include <stdio.h>
#include <zor/cfm.h>
#include <zor/msg.h>
#include <zor/platform/config.h>

#define LAMP_NAME 0x70000001u /* a parameter of this daemon's own */

int main(void) {
  if (ZOR_MSG_Init("lamp") != ZOR_OK) return 1;
  ZOR_DBSetPara(LAMP_NAME, 0, "kitchen", sizeof "kitchen"); /* in the store at once */
  printf("saved: %u\n", (unsigned)ZOR_DBSaveSyncFunc());    /* what "restore" brings back; waits for cms */
  char name[16] = "";
  ZOR_DBGetPara(LAMP_NAME, 0, name, sizeof name - 1);
  printf("%s\n", name);
  return 0;
}

/* Prints:
 * saved: 0
 * kitchen
 */
