#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/uv.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "sdk/msgapi/queue.h"
#include "support/child.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

std::string Words(uint32_t reportSwitch, uint32_t reportSeconds) {
  const uint32_t words[] = {reportSwitch, reportSeconds};
  return std::string(static_cast<const char *>(static_cast<const void *>(words)), sizeof words);
}

// The report timers that still run, and the idle hooks that drain the pending queue.
struct OnLoop {
  std::vector<uint32_t> timerPeriodsMs;
  int drainHooks = 0;
};

OnLoop LookAtLoop() {
  OnLoop found;
  ZOR_UV_WatcherIterateItem(nullptr, &found, [](UvWatcher *watcher, void *arg) {
    auto &out = *static_cast<OnLoop *>(arg);
    void *record = watcher;
    if ((watcher->flags & UV_WATCHER_TIMER) != 0 && static_cast<UvTimer *>(record)->callback != nullptr) {
      out.timerPeriodsMs.push_back(static_cast<UvTimer *>(record)->intervalMs);
    }
    if ((watcher->flags & UV_WATCHER_IDLE) != 0 && static_cast<UvIdle *>(record)->idleCallback == DrainPending) {
      ++out.drainHooks;
    }
  });
  return found;
}

// Runs the loop until the condition holds; false when it does not within about ten seconds.
bool RunLoopUntil(const std::function<bool()> &condition) {
  for (int pass = 0; pass < 1000 && !condition(); ++pass) {
    UvTimer *timer = ZOR_UTIL_TimerAdd(
        10, 1, [](void *) { ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault()); }, nullptr);
    if (timer == nullptr) return false;
    ZOR_UV_LoopRun(nullptr, 0);
  }
  return condition();
}

std::vector<uint32_t> g_dispatched;  // what the message procedure noted of each message

class Connection : public ::testing::Test {
 protected:
  // Connects to a server that grants a name; its end of the connection goes to server_.
  uint32_t Init(const Message &reply = MakeRegistrationReply("granted"), const char *name = "wanted") {
    ScriptedServer server(root_, AnswerRegistration(reply));
    const uint32_t status = ZOR_MSG_Init(name);
    server_ = server.TakeOver();
    ::unlink(root_.Path("/var/msgsvr").c_str());
    return status;
  }
  ~Connection() override {
    ZOR_MSG_Destroy();
    ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());
    g_dispatched.clear();
  }

  TempRoot root_;
  BusPeer server_;
};

TEST_F(Connection, RegistersTheWantedNameAndTakesTheGrantedOne) {
  g_stMsgCtx.sequence = 41;
  Message request;
  ScriptedServer server(root_, [&](const BusPeer &peer) {
    request = *peer.ReceiveMessage();
    peer.Send(MakeRegistrationReply("twelve_chars"));
  });
  ASSERT_EQ(ZOR_MSG_Init("wanted_name_cut"), ZOR_OK);
  server.TakeOver();
  EXPECT_EQ(request.Bytes(), MakeMessage(0x701, "wanted_name", "", 0, "", 42).Bytes());
  EXPECT_STREQ(m_aucAppName, "twelve_char");
  EXPECT_EQ(m_aucAppName, g_stMsgCtx.appName);
  EXPECT_EQ(::fcntl(g_stMsgCtx.socketFd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_IGN);
  EXPECT_EQ(ZOR_MSG_Init("other"), ZOR_OK) << "a second call does nothing";
  EXPECT_STREQ(g_stMsgCtx.appName, "twelve_char");
}

TEST_F(Connection, AFailureAfterTheConnectionStandsLeavesNoBusBehindTheClientsStatus) {
  EXPECT_EQ(ZOR_MSG_Init("wanted"), ZOR_E_CONNECT) << "no server";
  EXPECT_EQ(Init(MakeRegistrationReply("")), ZOR_OK) << "a refused name is not reported";
  EXPECT_EQ(ZOR_MSG_SendSimpleMsg("cms", 1, 0), ZOR_E_NOT_CONNECTED);
  EXPECT_TRUE(server_.ClosedByOther());
  EXPECT_EQ(Init(MakeRegistrationReply("cms"), "cms"), ZOR_E_CONNECT) << "no notification server";
  EXPECT_EQ(g_stMsgCtx.socketFd, -1);
  EXPECT_TRUE(server_.ClosedByOther());
  EXPECT_EQ(LookAtLoop().drainHooks, 1);
}

TEST_F(Connection, TheReplySaysByteOrderAndReportPeriodHoweverShortItIs) {
  const struct {
    std::string body;
    std::vector<uint32_t> periods;
  } cases[] = {
      {Words(1, 3), {3000}},          {Words(0, 3), {}}, {Words(1, 4294968), {0x7fffffff}},
      {Words(1, 3).substr(0, 7), {}}, {"", {}},
  };
  for (const auto &c : cases) {
    for (const uint32_t data : {1u, 0u}) {
      ASSERT_EQ(Init(MakeRegistrationReply("granted", data, c.body)), ZOR_OK);
      EXPECT_EQ(g_stMsgCtx.flags & ZOR_MSG_FLAG_SWAP, data * ZOR_MSG_FLAG_SWAP);
      EXPECT_EQ(LookAtLoop().timerPeriodsMs, c.periods);
      EXPECT_EQ(LookAtLoop().drainHooks, 1) << "one, however often the bus is initialised";
      ZOR_MSG_Destroy();
      EXPECT_TRUE(LookAtLoop().timerPeriodsMs.empty());
    }
  }
}

TEST_F(Connection, ReportsAreSentWhenTheirPeriodEnds) {
  ASSERT_EQ(Init(MakeRegistrationReply("granted", 0, Words(1, 1))), ZOR_OK);
  ASSERT_TRUE(RunLoopUntil([&] { return !server_.NothingArrived(); }));
  const auto report = server_.ReceiveMessage();
  EXPECT_EQ(report->Bytes(), MakeMessage(0x708, "granted", "", 0, "", report->header.sequence).Bytes());
}

TEST_F(Connection, TheLoopDispatchesWhatArrivesAlsoFromAFile) {
  ASSERT_EQ(Init(), ZOR_OK);
  static std::string lastBody;
  ZOR_MSG_RegisterMsgProc([](ZOR_MSG_HEAD *msg, uint32_t length) {
    g_dispatched.push_back(msg->type);
    lastBody.assign(static_cast<const char *>(static_cast<const void *>(msg + 1)), length);
  });
  server_.Send(MakeMessage(0xe0000011, "a", "granted", 0, "inline"));
  ASSERT_TRUE(RunLoopUntil([] { return g_dispatched.size() == 1; }));
  EXPECT_EQ(lastBody, "inline");
  EXPECT_EQ(g_stMsgCtx.flags >> ZOR_MSG_BOARD_SHIFT, 7u);
  const SocketPair pair;
  const std::string body(5000, 'f');
  ZOR_MSG_HEAD *msg = ZOR_MSG_GetMsgHead(std::memcpy(ZOR_MSG_GetMsgBlock(5000), body.data(), 5000));
  ZOR_MSG_SendEx(pair.near.fd(), msg);
  std::free(msg);
  server_.Send(MakeMessage(0x10000012, "a", "granted", 0, "/etc/passwd"));
  server_.Send(pair.far.ReceiveMessage()->Bytes());
  ASSERT_TRUE(RunLoopUntil([] { return g_dispatched.size() == 2; }));
  EXPECT_EQ(g_dispatched, (std::vector<uint32_t>{0x11, 0})) << "a message whose file is refused is dropped";
  EXPECT_TRUE(lastBody == body);
}

TEST_F(Connection, AnAsynchronousReplyMustMatchTypeAndNumber) {
  ASSERT_EQ(Init(), ZOR_OK);
  ZOR_MSG_RegisterMsgProc([](ZOR_MSG_HEAD *msg, uint32_t) { g_dispatched.push_back(msg->sequence); });
  static uint32_t answer = 0;
  ZOR_MSG_HEAD request;
  ZOR_MSG_SimpleBuilder(&request, "cms", 0x55, 0);
  ASSERT_EQ(ZOR_MSG_AsyncSendAndRecv(
                &request, [](ZOR_MSG_HEAD *reply, uint32_t, void *) { answer = reply->data; }, 60000, nullptr),
            ZOR_OK);
  server_.Send(MakeMessage(0x55, "cms", "granted", 1, "", request.sequence + 1));
  server_.Send(MakeMessage(0x56, "cms", "granted", 2, "", request.sequence));
  server_.Send(MakeMessage(0x55, "cms", "granted", 3, "", request.sequence));
  ASSERT_TRUE(RunLoopUntil([] { return answer != 0; }));
  EXPECT_EQ(answer, 3u);
  EXPECT_EQ(g_dispatched, (std::vector<uint32_t>{request.sequence + 1, request.sequence}));
  const auto noteEnd = [](ZOR_MSG_HEAD *reply, uint32_t status, void *) { answer = reply == nullptr ? status : 9; };
  ASSERT_EQ(ZOR_MSG_AsyncSendAndRecv(&request, noteEnd, 20, nullptr), ZOR_OK);
  ZOR_MSG_Destroy();
  EXPECT_TRUE(RunLoopUntil([] { return answer == 1; })) << "its time-out survives the bus";
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
  Child child = Child::Function([] {
    ZOR_MSG_Destroy();
    return 0;
  });
  ASSERT_EQ(child.Wait(), 0);
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

TEST_F(Connection, DestroyFreesWhatWasSetAsideAndTouchesNoWatcherOfADestroyedLoop) {
  ASSERT_EQ(Init(), ZOR_OK);
  ZOR_MSG_QueueAppend(&g_stMsgCtx.pending, ZOR_MSG_GetMsgHead(ZOR_MSG_GetMsgBlock(8)));
  ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());
  ZOR_MSG_Destroy();
  EXPECT_TRUE(server_.ClosedByOther());
}

TEST_F(Connection, ASlaveBoardRegistersOverTcpWithoutTheLoop) {
  EXPECT_EQ(ZOR_MSG_InitSlaveApp("wanted", nullptr, 1), ZOR_E_ARGUMENT);
  EXPECT_STREQ(g_stMsgCtx.appName, "wanted");
  EXPECT_EQ(ZOR_MSG_InitSlaveApp("wanted", "no address", 1), ZOR_E_CONNECT);
  ScriptedServer refusing(AnswerRegistration(MakeRegistrationReply("")));
  EXPECT_EQ(ZOR_MSG_InitSlaveApp("wanted", "127.0.0.1", refusing.port()), ZOR_E_REFUSED);
  EXPECT_EQ(g_stMsgCtx.socketFd, -1);
  ScriptedServer server(AnswerRegistration(MakeRegistrationReply("granted")));
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
