/* A program that does nothing: what every process costs on this machine. */
#include <stdio.h>
#include <unistd.h>

int main(void) {
  if (puts("empty: ready") < 0 || fflush(stdout) != 0) return 1;
  pause();
  return 0;
}
