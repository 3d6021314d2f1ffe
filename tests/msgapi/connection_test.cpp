#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/uv.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/loop.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

using testing::ElementsAre;

std::string Words(uint32_t reportSwitch, uint32_t reportSeconds) {
  const uint32_t words[] = {reportSwitch, reportSeconds};
  return std::string(static_cast<const char *>(static_cast<const void *>(words)), sizeof words);
}

std::vector<std::string> dispatched;  // what the message procedure recorded of each message

class Connection : public ::testing::Test {
 protected:
  // Connects to a server that grants a name; its end of the connection goes to server_, its request to request_.
  uint32_t Init(const Message &reply = MakeRegistrationReply("granted"), const char *name = "wanted") {
    ScriptedServer server(root_, [&](const BusPeer &peer) {
      request_ = peer.ReceiveMessage().value_or(Message());
      peer.Send(reply);
    });
    const uint32_t status = ZOR_MSG_Init(name);
    server_ = server.TakeOver();
    ::unlink(root_.Path("/var/msgsvr").c_str());
    ZOR_MSG_RegisterMsgProc([](ZOR_MSG_HEAD *msg, uint32_t length) {
      const auto *body = reinterpret_cast<const char *>(msg + 1);
      dispatched.push_back(std::to_string(msg->data) + ":" + std::string(body, length));
    });
    return status;
  }
  ~Connection() override {
    ZOR_MSG_Destroy();
    ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());
  }

  TempRoot root_;
  BusPeer server_;
  Message request_;
};

TEST_F(Connection, AFailureAfterTheConnectionStandsLeavesNoBusBehindTheClientsStatus) {
  EXPECT_EQ(ZOR_MSG_Init("wanted"), ZOR_E_CONNECT) << "no server";
  EXPECT_EQ(Init(MakeRegistrationReply("")), ZOR_OK) << "a refused name is not reported";
  EXPECT_EQ(ZOR_MSG_SendSimpleMsg("cms", 1, 0), ZOR_E_NOT_CONNECTED);
  EXPECT_TRUE(server_.ClosedByOther());
  EXPECT_EQ(Init(MakeRegistrationReply("cms"), "cms"), ZOR_E_CONNECT) << "no notification server";
  EXPECT_EQ(g_stMsgCtx.socketFd, -1);
  EXPECT_TRUE(server_.ClosedByOther());
}

TEST_F(Connection, TheReplySaysByteOrderAndReportPeriodHoweverShortItIs) {
  const struct {
    std::string body;
    std::vector<std::string> onLoop;  // one hook, however often the bus is initialised
  } cases[] = {{Words(0, 3), {"hook"}},
               {Words(1, 3), {"hook", "every 3000"}},
               {Words(1, 4294968), {"hook", "every 2147483647"}},
               {Words(1, 3).substr(0, 7), {"hook"}},
               {"", {"hook"}}};
  for (const auto &c : cases) {
    for (const uint32_t data : {1u, 0u}) {
      ASSERT_EQ(Init(MakeRegistrationReply("granted", data, c.body)), ZOR_OK);
      EXPECT_EQ(g_stMsgCtx.flags & ZOR_MSG_FLAG_SWAP, data * ZOR_MSG_FLAG_SWAP);
      EXPECT_THAT(OnLoop(), testing::UnorderedElementsAreArray(c.onLoop));
      ZOR_MSG_Destroy();
      EXPECT_THAT(OnLoop(), ElementsAre("hook"));
    }
  }
}

TEST_F(Connection, TheLoopDispatchesWhatArrivesAlsoFromAFile) {
  ASSERT_EQ(Init(), ZOR_OK);
  const SocketPair pair;
  const std::string body(5000, 'f');
  const Block msg(ZOR_MSG_GetMsgHead(std::memcpy(ZOR_MSG_GetMsgBlock(5000), body.data(), 5000)));
  ZOR_MSG_SendEx(pair.near.fd(), msg.get());
  server_.Send(MakeMessage(0xe0000011, "a", "granted", 1, "inline"));
  server_.Send(MakeMessage(0xf0000012, "a", "granted", 2, "/etc/passwd"));  // refused, and so dropped
  ASSERT_TRUE(RunLoopUntil([] { return g_stMsgCtx.flags >> ZOR_MSG_BOARD_SHIFT == 7; }));
  server_.Send(pair.far.ReceiveMessage()->Bytes());
  ASSERT_TRUE(RunLoopUntil([] { return dispatched.size() == 2; }));
  EXPECT_THAT(dispatched, ElementsAre("1:inline", "0:" + body));
}

TEST_F(Connection, OutlivesTheSynchronousSpawnInWhoseCallbackItWasMade) {
  static std::function<void()> onExit;
  onExit = [&] { EXPECT_EQ(Init(MakeRegistrationReply("granted", 0, Words(1, 300))), ZOR_OK); };
  const char *const args[] = {"true", nullptr};
  UvProcessOptions options = {};
  options.file = "/bin/true";
  options.args = args;
  options.exitCallback = [](UvProcess *, int32_t, int32_t, int32_t) { onExit(); };
  EXPECT_EQ(ZOR_UV_ProcessSpawnSync(&options, 0), 0u);
  EXPECT_THAT(OnLoop(), ElementsAre("every 300000", "hook"));
  server_.Send(MakeMessage(0x4001, "peer", "granted", 1, "one"));
  EXPECT_TRUE(RunLoopUntil([] { return !dispatched.empty(); }));
  EXPECT_THAT(dispatched, ElementsAre("1:one"));
}

TEST_F(Connection, AnAsynchronousReplyMustMatchTypeAndNumber) {
  ASSERT_EQ(Init(), ZOR_OK);
  static uint32_t result = 0;
  const auto note = [](ZOR_MSG_HEAD *reply, uint32_t status, void *) { result = reply ? reply->data : status; };
  ZOR_MSG_HEAD request;
  ZOR_MSG_SimpleBuilder(&request, "cms", 0x55, 0);
  ASSERT_EQ(ZOR_MSG_AsyncSendAndRecv(&request, note, 60000, nullptr), ZOR_OK);
  server_.Send(MakeMessage(0x55, "cms", "granted", 3, "", request.sequence + 1));
  server_.Send(MakeMessage(0x56, "cms", "granted", 4, "", request.sequence));
  server_.Send(MakeMessage(0x55, "cms", "granted", 5, "", request.sequence));
  ASSERT_TRUE(RunLoopUntil([] { return result != 0; }));
  EXPECT_EQ(result, 5u);
  EXPECT_THAT(dispatched, ElementsAre("3:", "4:"));
  EXPECT_EQ(ZOR_MSG_AsyncSendAndRecv(&request, nullptr, 20, nullptr), ZOR_E_IO);
  ASSERT_EQ(ZOR_MSG_AsyncSendAndRecv(&request, note, 20, nullptr), ZOR_OK);
  ZOR_MSG_Destroy();
  EXPECT_TRUE(RunLoopUntil([] { return result == 1; })) << "its time-out survives the bus";
}

TEST_F(Connection, AHandlerMayDestroyTheBusThatCalledIt) {
  ASSERT_EQ(Init(), ZOR_OK);
  ZOR_MSG_RegisterMsgProc([](ZOR_MSG_HEAD *, uint32_t) { ZOR_MSG_Destroy(); });
  const int fd = g_stMsgCtx.socketFd;
  server_.Send(MakeMessage(1, "a", "granted").Bytes() + MakeMessage(2, "a", "granted").Bytes());
  ASSERT_TRUE(RunLoopUntil([] { return g_stMsgCtx.socketFd == -1; }));
  EXPECT_EQ(g_stMsgCtx.messageProc, nullptr);
  EXPECT_EQ(g_stMsgCtx.sequence, 0u);
  EXPECT_EQ(g_stMsgCtx.traceFd, 0);
  const SocketPair next;  // gets the number of the closed socket
  EXPECT_TRUE(next.near.fd() == fd || next.far.fd() == fd);
  next.far.Send(MakeMessage(3, "a", "b"));
  ASSERT_TRUE(RunLoopUntil([pass = 0]() mutable { return ++pass > 3; }));
  EXPECT_TRUE(next.near.ReceiveMessage()) << "nobody else reads from that number any more";
}

TEST_F(Connection, AChildThatDestroysTheBusLeavesItToItsParent) {
  ASSERT_EQ(Init(), ZOR_OK);
  EXPECT_EQ(Child::Function([] { return ZOR_MSG_Destroy(), 0; }).Wait(), 0);
  EXPECT_EQ(ZOR_MSG_SendSimpleMsg("cms", 5, 0), ZOR_OK);
  EXPECT_TRUE(server_.ReceiveMessage());
}

TEST_F(Connection, ADeadServerIsNotWatchedAnyMoreAndSendsSayThatItHasGone) {
  ASSERT_EQ(Init(), ZOR_OK);
  server_.Close();
  ASSERT_TRUE(RunLoopUntil([] { return (g_stMsgCtx.watcher->io.events & UV_READABLE) == 0; }));
  EXPECT_EQ(ZOR_MSG_SendSimpleMsg("cms", 5, 0), ZOR_E_PEER_GONE);
  ZOR_MSG_Destroy();
  EXPECT_EQ(Init(), ZOR_OK);
  EXPECT_EQ(ZOR_MSG_SendSimpleMsg("cms", 5, 0), ZOR_OK);
}

TEST_F(Connection, ASlaveBoardRegistersOverTcpWithoutTheLoop) {
  EXPECT_EQ(ZOR_MSG_InitSlaveApp("wanted", nullptr, 1), ZOR_E_ARGUMENT);
  EXPECT_STREQ(g_stMsgCtx.appName, "wanted");
  EXPECT_EQ(ZOR_MSG_InitSlaveApp("wanted", "no address", 1), ZOR_E_CONNECT);
  ScriptedServer refusing(ReplyToRegistration(MakeRegistrationReply("")));
  EXPECT_EQ(ZOR_MSG_InitSlaveApp("wanted", "127.0.0.1", refusing.port()), ZOR_E_REFUSED);
  EXPECT_EQ(g_stMsgCtx.socketFd, -1);
  ScriptedServer server(ReplyToRegistration(MakeRegistrationReply("granted")));
  ASSERT_EQ(ZOR_MSG_InitSlaveApp("wanted", "127.0.0.1", server.port()), ZOR_OK);
  EXPECT_STREQ(g_stMsgCtx.appName, "granted");
  EXPECT_EQ(g_stMsgCtx.watcher, nullptr);
  timeval limit = {};
  socklen_t size = sizeof limit;
  ASSERT_EQ(::getsockopt(g_stMsgCtx.socketFd, SOL_SOCKET, SO_SNDTIMEO, &limit, &size), 0);
  EXPECT_EQ(limit.tv_sec, 1);
}

}  // namespace
}  // namespace zor::test
