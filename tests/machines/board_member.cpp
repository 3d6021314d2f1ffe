// A member of a bus whose machines differ in their byte order; mixed_bus.sh starts it.
// Usage: board_member NAME local|PORT serve          serves until it is asked to end
//        board_member NAME local|PORT ask PEER       asks PEER, which serves, and checks the replies
#include "board_member.h"

#include <zor/msg.h>

#include <cstdio>
#include <string>

int main(int argc, char **argv) {
  if (argc < 4) return 2;
  const std::string way = argv[2];
  const bool remote = way != "local";
  const uint32_t status = remote ? ZOR_MSG_InitSlaveApp(argv[1], "127.0.0.1", static_cast<uint16_t>(std::stoi(way)))
                                 : ZOR_MSG_Init(argv[1]);
  if (g_stMsgCtx.socketFd < 0) {
    std::fprintf(stderr, "board_member: cannot join the bus: 0x%x\n", status);
    return 1;
  }
  return std::string(argv[3]) == "serve" ? zor::test::Serve() : zor::test::AskAll(argv[4]);
}
