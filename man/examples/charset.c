#include <stdio.h>
#include <stdlib.h>
#include <zor/charset.h>

int main(void) {
  char *text = ZOR_NLS_TryConvertToUtf8("\xd6\xd0"); /* not UTF-8, so converted from cp936 */
  if (text == NULL) return 1;
  printf("%u: %s\n", (unsigned)ZOR_NLS_IsStringUtf8(text), text);
  char digits[7];
  uint32_t size = sizeof digits;
  if (cl_bytesToString(text, 3, digits, &size) == CL_OK) printf("%s\n", digits);
  free(text);
  return 0;
}

/* Prints:
 * 1: 中
 * E4B8AD
 */
