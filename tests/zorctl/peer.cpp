// A daemon for the golden tests, which prints "ready" and then does what its first argument selects:
//   peer idle NAME                reads messages and replies to none
//   peer ask NAME OTHER           waits until OTHER is there, sends it a request and waits for the reply for an hour
//   peer tell NAME OTHER TYPE     waits until OTHER is there, sends it a one-way message of the type, prints "told" and
//                                 reads messages
//   peer refuse NAME [PATTERN]    registers the restful pattern, subscribes to events of "lan", and refuses to exit
//   peer stat NAME STATISTIC VALUE   stores a statistic in the logging daemon
//   peer talk NAME OTHER TYPE MS  waits until OTHER is there, and sends it a one-way message of the type every MS
//                                 milliseconds
//   peer pass NAME OTHER          waits until OTHER is there, sends it a message, a descriptor and a message of type
//   0x4001 peer flood NAME OTHER COUNT [BYTES]   sends it that many messages, then prints "done" and reads messages
#include <unistd.h>
#include <zor/event.h>
#include <zor/mlog.h>
#include <zor/msg.h>
#include <zor/msg_build.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr uint32_t kType = 0x4000;
constexpr uint32_t kLongMs = 3'600'000;
constexpr useconds_t kPollUs = 10'000;

void Await(const char *other) {
  while (ZOR_MSG_GetNumOfProcesses(other) == 0) ::usleep(kPollUs);
}

// Each request has its own type: a waiting library takes any message of the awaited type as the reply.
int Ask(const char *self, const char *other) {
  Await(other);
  uint32_t reply = 0;
  return ZOR_MSG_SendAndRecvMsgData(other, kType + static_cast<unsigned char>(self[0]), 0, kLongMs, &reply) == ZOR_OK
             ? 0
             : 1;
}

int Tell(const char *other, const char *type) {
  Await(other);
  const auto number = static_cast<uint32_t>(std::strtoul(type, nullptr, 0));
  if (ZOR_MSG_SendSimpleMsg(other, number, 0) != ZOR_OK) return 1;
  std::puts("told");
  return 0;
}

int Pass(const char *other) {
  Await(other);
  const bool passed = ZOR_MSG_SendSimpleMsg(other, kType, 0) == ZOR_OK && ZOR_MSG_SendFd(STDERR_FILENO) == ZOR_OK &&
                      ZOR_MSG_SendSimpleMsg(other, kType + 1, 0) == ZOR_OK;
  return passed ? 0 : 1;
}

int Talk(const char *other, const char *type, const char *pauseMs) {
  Await(other);
  const auto number = static_cast<uint32_t>(std::strtoul(type, nullptr, 0));
  const auto pause = static_cast<useconds_t>(std::strtoul(pauseMs, nullptr, 10) * 1000);
  while (ZOR_MSG_SendSimpleMsg(other, number, 0) == ZOR_OK) ::usleep(pause);
  return 1;
}

int Flood(const char *other, long count, const char *bytes) {
  std::string text = "one of many";
  if (bytes != nullptr) text.resize(std::strtoul(bytes, nullptr, 10), '.');
  for (long i = 0; i < count; ++i) {
    if (ZOR_MSG_SendMsgData(other, kType, text.c_str(), static_cast<uint32_t>(text.size() + 1)) != ZOR_OK) return 1;
  }
  std::puts("done");
  return 0;
}

// The pattern may be any text; the server validates it.
int Refuse(const char *pattern) {
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegSyncMsgProc(
      ZOR_MSG_SAFE_EXIT, [](ZOR_MSG_HEAD *msg) { return ZOR_MSG_MsgResponseBuilder(msg, 1, nullptr, 0); }, 0, nullptr);
  ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_SUBSCRIBE_EVENT, ZOR_EVT_GetMsgTypeByEventModuleName("lan"));
  if (pattern == nullptr) return 0;
  const auto length = static_cast<uint32_t>(std::strlen(pattern) + 1);
  return ZOR_MSG_SendMsgData(nullptr, ZOR_MSG_RESTFUL_REGISTER, pattern, length) == ZOR_OK ? 0 : 1;
}

}  // namespace

int main(int count, char **arguments) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (count < 3 || ZOR_MSG_Init(arguments[2]) != ZOR_OK) return 2;
  int status = 0;
  if (std::strcmp(arguments[1], "refuse") == 0) status = Refuse(arguments[3]);
  if (count > 4 && std::strcmp(arguments[1], "stat") == 0) status = set_mlog_stat_info(arguments[3], arguments[4]);
  std::puts("ready");
  if (count > 3 && std::strcmp(arguments[1], "ask") == 0) status = Ask(arguments[2], arguments[3]);
  if (count > 4 && std::strcmp(arguments[1], "tell") == 0) status = Tell(arguments[3], arguments[4]);
  if (count > 3 && std::strcmp(arguments[1], "pass") == 0) status = Pass(arguments[3]);
  if (count > 5 && std::strcmp(arguments[1], "talk") == 0) status = Talk(arguments[3], arguments[4], arguments[5]);
  if (count > 4 && std::strcmp(arguments[1], "flood") == 0)
    status = Flood(arguments[3], std::atol(arguments[4]), arguments[5]);
  if (status == 0) ZOR_MSG_GetAndDispatch();
  ZOR_MSG_Destroy();
  return status;
}
