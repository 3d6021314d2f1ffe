#include <signal.h>
#include <stdio.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/uv.h>

#define GET_TEMPERATURE 0x4001u
#define ROOMS 2u

/* The provider: its reply has the request's type and sequence number. */
static ZOR_MSG_HEAD *OnGetTemperature(ZOR_MSG_HEAD *request) {
  const uint32_t room = request->data;
  return ZOR_MSG_MsgResponseBuilder(request, room < ROOMS ? 20 + room : 0, NULL, 0);
}

static int RunProvider(void) {
  if (ZOR_MSG_Init("thermometer") != ZOR_OK) return 1; /* registered as "thermometer", 11 characters at most */
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegSyncMsgProc(GET_TEMPERATURE, OnGetTemperature, 0, NULL);
  return (int)ZOR_MSG_GetAndDispatch();
}

static void OnReply(ZOR_MSG_HEAD *reply, uint32_t status, void *data) {
  (void)data;
  if (status == 0) printf("asynchronous: %u degrees\n", (unsigned)reply->data);
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

int main(void) {
  const pid_t provider = fork();
  if (provider == 0) return RunProvider();
  if (ZOR_MSG_Init("display") != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  while (ZOR_MSG_GetNumOfProcesses("thermometer") == 0) usleep(10000);

  uint32_t degrees = 0; /* blocks this daemon for up to 2000 ms */
  const uint32_t status = ZOR_MSG_SendAndRecvMsgData("thermometer", GET_TEMPERATURE, 0, 2000, &degrees);
  printf("synchronous: status %u, %u degrees\n", (unsigned)status, (unsigned)degrees);

  ZOR_MSG_HEAD request; /* does not block: the loop calls back */
  ZOR_MSG_SimpleBuilder(&request, "thermometer", GET_TEMPERATURE, 1);
  if (ZOR_MSG_AsyncSendAndRecv(&request, OnReply, 2000, NULL) == ZOR_OK) ZOR_MSG_GetAndDispatch();

  uint32_t word = 0; /* a synchronous request to an absent name fails at once */
  printf("absent: %#x\n", (unsigned)ZOR_MSG_SendAndRecvMsgData("barometer", GET_TEMPERATURE, 0, 2000, &word));
  kill(provider, SIGTERM);
  return 0;
}

/* Prints:
 * synchronous: status 0, 20 degrees
 * asynchronous: 21 degrees
 * absent: 0x10004
 */
