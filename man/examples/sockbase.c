#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/sockbase.h>
#include <zor/uv.h>

static void OnEvent(SockBase *sockBase, uint32_t event) {
  char text[64];
  if (event != UV_READABLE) return;
  const ssize_t length = read(sockBase->io.fd, text, sizeof text);
  printf("read: %.*s\n", length > 0 ? (int)length : 0, text);
  ZOR_UTIL_SockBaseDelete(sockBase); /* closes the socket */
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

int main(void) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return 1;
  if (ZOR_UTIL_SockBaseReg(ends[0], 0, OnEvent, ZOR_SOCK_MODE_READ, NULL, NULL) != 0) return 1;
  if (write(ends[1], "hello", 5) != 5) return 1;
  return (int)ZOR_UTIL_SockBaseStart(5);
}

/* Prints:
 * read: hello
 */
