#include <stdio.h>
#include <zor/platform/bounded.h>

int main(void) {
  char name[6];
  const int status = strcpy_s(name, sizeof name, "gateway"); /* ERANGE: cut, and terminated */
  printf("%s%s\n", name, status != 0 ? " (cut)" : "");
  return 0;
}

/* Prints:
 * gatew (cut)
 */
