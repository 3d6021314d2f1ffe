#include <stdio.h>
#include <zor/mlog.h>

int main(void) {
  mlog_print("lamp", ZOR_MLOG_WARNING, "bulb %d is broken", 2); /* lost when there is no daemon */
  set_mlog_stat_info("bulbs", "7");
  char value[16] = "";
  if (get_mlog_stat_info("bulbs", value, sizeof value) == 0) printf("bulbs: %s\n", value);
  printf("%s is %u\n", mlog_get_log_lv_string(ZOR_MLOG_WARNING), (unsigned)mlog_get_log_lv("warn"));
  return 0;
}

/* Prints:
 * bulbs: 7
 * WARN is 4
 */
