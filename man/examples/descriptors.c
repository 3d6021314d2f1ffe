#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <zor/uv.h>

static void OnReadable(UvIO *watcher, uint32_t event) {
  (void)event; /* UV_READABLE, the only one that is waited for */
  char text[64];
  const ssize_t length = read(watcher->fd, text, sizeof text);
  if (length > 0) {
    printf("read: %.*s\n", (int)length, text);
  } else {
    printf("end of file\n");
    UvLoop *loop = watcher->header.loop;
    ZOR_UV_IODelete(watcher); /* closes the descriptor; the loop frees the record */
    ZOR_UV_LoopStop(loop);
  }
}

static void OnTimer(void *data) {
  const int fd = *(int *)data;
  if (write(fd, "hello", 5) != 5) abort();
  close(fd);
}

int main(void) {
  int ends[2];
  if (pipe(ends) != 0) return 1;
  UvIO *watcher = malloc(sizeof *watcher); /* never on the stack: the loop frees it */
  if (watcher == NULL) return 1;
  if (ZOR_UV_IOInit(NULL, watcher, ends[0], OnReadable) != 0) return 1;
  ZOR_UV_IOStart(watcher, UV_READABLE);
  ZOR_UTIL_TimerAdd(10, 1, OnTimer, &ends[1]);
  return (int)ZOR_UV_LoopRun(NULL, 0);
}

/* Prints:
 * read: hello
 * end of file
 */
