/* The C side of python_bench.py. Without arguments it replies to 0x4001 as "cprovider"; with a name and a number it
   asks that name so often and prints how many microseconds a request takes. */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <zor/msg.h>

enum { ECHO = 0x4001, TIMEOUT_MS = 10000, WARM_UP = 100 };

static ZOR_MSG_HEAD *OnEcho(ZOR_MSG_HEAD *msg) {
  return ZOR_MSG_MsgResponseBuilder(msg, msg->data, NULL, 0);
}

static int Provide(void) {
  if (ZOR_MSG_Init("cprovider") != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegSyncMsgProc(ECHO, OnEcho, 0, NULL);
  puts("ready");
  fflush(stdout);
  return (int)ZOR_MSG_GetAndDispatch();
}

static double Now(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec * 1e6 + (double)now.tv_nsec / 1e3;
}

static int Ask(const char *name, long count) {
  if (ZOR_MSG_Init("casker") != ZOR_OK) return 1;
  double start = Now();
  for (long i = -WARM_UP; i < count; ++i) {
    if (i == 0) start = Now();
    uint32_t word = 0;
    if (ZOR_MSG_SendAndRecvMsgData(name, ECHO, 7, TIMEOUT_MS, &word) != ZOR_OK || word != 7) return 1;
  }
  printf("%f\n", (Now() - start) / (double)count);
  ZOR_MSG_Destroy();
  return 0;
}

int main(int argc, char **argv) {
  return argc == 3 ? Ask(argv[1], atol(argv[2])) : Provide();
}
