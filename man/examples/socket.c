#include <stdio.h>
#include <sys/socket.h>
#include <zor/socket.h>

int main(void) {
  const int fd = ZOR_UTIL_SocketCreateServer("127.0.0.1", 0, 0); /* TCP over IPv4, any free port; not listening yet */
  if (fd < 0 || listen(fd, 5) != 0) return 1;
  printf("listening\n");
  ZOR_UTIL_SocketClose(fd);

  struct addrinfo *address = ZOR_UTIL_ParseIPAddress(ZOR_ADDR_UDP, "127.0.0.1", 5000);
  printf("loopback: %u\n", (unsigned)ZOR_UTIL_IsAddrLoopback(address));
  ZOR_UTIL_FreeAddrInfo(address);
  return 0;
}

/* Prints:
 * listening
 * loopback: 1
 */
