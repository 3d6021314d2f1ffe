#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/event.h>
#include <zor/msg.h>

#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "support/loop.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;

constexpr uint32_t kType = 0x1234;
constexpr uint32_t kEvent = 0x2da65;
constexpr ZOR_MSG_REJOIN kQuick = {10, 10, 60000};

// What the daemon heard and got, in order.
std::vector<std::string> history;
std::vector<uint32_t> pauses;  // on the loop, at each transition
bool destroyAtNext = false;

// The pause, or the wait for a reply; 0 when neither runs, nothing without the library's timer.
std::optional<uint32_t> RejoinTimer() {
  for (const std::string &item : OnLoop()) {
    if (item.starts_with("every ")) return static_cast<uint32_t>(std::stoul(item.substr(6)));
  }
  return std::nullopt;
}

void OnLink(uint32_t event, void *data) {
  history.push_back(static_cast<const char *>(data) + std::to_string(event));
  pauses.push_back(RejoinTimer().value_or(0));
  if (destroyAtNext) ZOR_MSG_Destroy();
}

void Ask(uint32_t timeoutMs) {
  ZOR_MSG_HEAD request;
  ZOR_MSG_SimpleBuilder(&request, "other", kType, 0);
  const auto onReply = [](ZOR_MSG_HEAD *, uint32_t status, void *) {
    history.push_back("reply " + std::to_string(status));
  };
  ASSERT_EQ(ZOR_MSG_AsyncSendAndRecv(&request, onReply, timeoutMs, nullptr), ZOR_OK);
}

class Rejoin : public testing::Test {
 protected:
  Rejoin() {
    history.clear();
    pauses.clear();
    destroyAtNext = false;
    {
      ScriptedServer server(root_, ReplyToRegistration(MakeRegistrationReply("daemon")));
      EXPECT_EQ(ZOR_MSG_Init("daemon"), ZOR_OK);
      server_ = server.TakeOver();
    }
    ZOR_MSG_RegisterMsgProc([](ZOR_MSG_HEAD *msg, uint32_t) { history.push_back(std::to_string(msg->data)); });
    Listen();
  }
  ~Rejoin() override {
    ZOR_MSG_Destroy();
    ::close(listener_);
  }

  // From now on the test is the server: nothing here may wait for the library while it does not run.
  void Listen() {
    ::unlink(root_.Path("/var/msgsvr").c_str());
    listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    root_.Path("/var/msgsvr").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener_, 5), 0);
  }
  // The next connection, whose registration was received.
  BusPeer Accept() {
    int fd = -1;
    EXPECT_TRUE(RunLoopUntil([&] { return (fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; }));
    BusPeer peer(fd);
    const Message request = peer.ReceiveMessage().value_or(Message());
    EXPECT_EQ(request.header.type, ZOR_MSG_REGISTER_APP);
    EXPECT_STREQ(request.header.source, "daemon");
    return peer;
  }
  // Accepts a connection and grants the name.
  void Grant(const std::string &body = std::string(8, '\0')) {
    server_ = Accept();
    server_.Send(MakeRegistrationReply("daemon", 0, body));
    EXPECT_TRUE(RunLoopUntil([] { return history.back() == "link 2"; }));
  }
  static bool IsLost() { return (g_stMsgCtx.watcher->io.events & UV_READABLE) == 0; }
  void Enable(const ZOR_MSG_REJOIN *times = &kQuick) {
    ASSERT_EQ(ZOR_MSG_EnableRejoin(times), ZOR_OK);
    char label[] = "link ";
    static std::string kept = label;
    ASSERT_EQ(ZOR_MSG_SetLinkProc(OnLink, kept.data()), ZOR_OK);
  }
  // "type data body" of all that has arrived since the registration, bodies up to their NUL; those in files are read.
  std::vector<std::string> Repeated() {
    std::vector<std::string> found;
    while (!server_.NothingArrived()) {
      const Message message = *server_.ReceiveMessage();
      std::string body = message.body;
      if ((message.header.type & ZOR_MSG_BODY_IN_FILE) != 0) {
        body = zor::test::ContentOf(root_.Path(body.c_str()));
        std::filesystem::remove(root_.Path(message.body.c_str()));
      }
      char head[32];
      std::snprintf(head, sizeof head, "%x %x ", message.header.type & ZOR_MSG_TYPE_MASK, message.header.data);
      found.push_back(head + std::string(body.c_str()));
    }
    return found;
  }

  TempRoot root_;
  int listener_ = -1;
  BusPeer server_;
};

TEST_F(Rejoin, IsNotDoneForADaemonThatDoesNotAskForIt) {
  Ask(50);
  server_.Close();
  ASSERT_TRUE(RunLoopUntil([] { return !history.empty(); }));
  EXPECT_THAT(history, ElementsAre("reply 1")) << "only its time-out ends it";
  EXPECT_TRUE(RunLoopUntil(IsLost));
  EXPECT_EQ(ZOR_MSG_SendSimpleMsg("other", kType, 0), ZOR_E_PEER_GONE);
  EXPECT_THAT(OnLoop(), ElementsAre("hook"));
}

TEST_F(Rejoin, BringsBackAllThatStoodOnceEach) {
  uint32_t (*proc)(void *, char **) = [](void *, char **) { return ZOR_OK; };
  std::vector<std::string> names(40, std::string(60, 'n'));
  std::vector<ZOR_MSG_RESTFUL_ENTRY> table;
  std::string patterns;
  for (std::string &name : names) {
    table.push_back({name.c_str(), proc});
    patterns += (patterns.empty() ? "/long/" : "|/long/") + name;
  }
  table.push_back({nullptr, nullptr});

  ZOR_MSG_SubscribeEventForOtherApp(kEvent, "daemon");  // for itself
  ZOR_EVT_SubscribeAllEvent();
  ZOR_MSG_SubscribeEventForOtherApp(kEvent, "friend");
  Enable();
  ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_SUBSCRIBE_EVENT, kEvent - ZOR_MSG_EVENT_FIRST);  // the first once more
  ZOR_MSG_SubscribeEventForOtherApp(kEvent + 1, "friend");
  ZOR_MSG_UnSubscribeEventForOtherApp(kEvent, "friend");
  ZOR_MSG_SubscribeEventForOtherApp(kEvent, "stopped");
  ZOR_MSG_SendMsgData(nullptr, ZOR_MSG_SAFE_EXIT, "stopped", sizeof "stopped");
  ZOR_MSG_RegRestfulProcs("/short", table.data());
  ASSERT_EQ(ZOR_MSG_RegRestfulProcsEx("/long", table.data(), "expand"), ZOR_OK);
  const std::vector<std::string> standing = {"702 2da65 ", "702 2da00 ", "702 2da66 friend", "109 0 /short",
                                             "109 0 " + patterns};

  const int fd = g_stMsgCtx.socketFd;
  const uint32_t words[] = {1, 3000};
  for (const char *round : {"first", "second"}) {
    SCOPED_TRACE(round);
    history.clear();
    Ask(60000);
    server_.Send(MakeMessage(kType, "other", "daemon", 7));
    server_.Close();
    EXPECT_EQ(ZOR_MSG_SendSimpleMsg("other", kType, 0), ZOR_E_PEER_GONE);
    EXPECT_THAT(history, IsEmpty()) << "nothing is heard inside a send";
    Grant({reinterpret_cast<const char *>(words), sizeof words});
    EXPECT_THAT(history, ElementsAre("7", "link 1", "reply 65540", "link 2"));
    EXPECT_THAT(Repeated(), ElementsAreArray(standing));
    EXPECT_THAT(OnLoop(), testing::UnorderedElementsAre("hook", "every 0", "every 3000000")) << "one report";
    EXPECT_EQ(g_stMsgCtx.socketFd, fd);
    EXPECT_EQ(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(ZOR_MSG_SendSimpleMsg("other", kType, 8), ZOR_OK);
    EXPECT_EQ(server_.ReceiveMessage()->header.data, 8u);
    server_.Send(MakeMessage(kType, "other", "daemon", 9));
    EXPECT_TRUE(RunLoopUntil([] { return history.back() == "9"; }));
  }
}

TEST_F(Rejoin, TriesAgainAfterGrowingPausesUntilTheNameIsGranted) {
  const ZOR_MSG_REJOIN times = {16, 40, 0};
  Enable(&times);
  server_.Close();
  for (const char *other : {"", "another", "", "another"}) {
    const BusPeer peer = Accept();
    peer.Send(MakeRegistrationReply(other));
    const size_t heard = history.size();
    ASSERT_TRUE(RunLoopUntil([&] { return history.size() > heard; }));
    EXPECT_TRUE(peer.ClosedByOther());
    EXPECT_EQ(ZOR_MSG_SendSimpleMsg("other", kType, 0), ZOR_E_PEER_GONE);
  }
  Grant();
  EXPECT_THAT(history, ElementsAre("link 1", "link 3", "link 3", "link 3", "link 3", "link 2"));
  const auto between = [](uint32_t least, uint32_t most) { return AllOf(Ge(least), Le(most)); };
  EXPECT_THAT(pauses, ElementsAre(between(8, 16), between(16, 32), between(20, 40), between(20, 40), between(20, 40),
                                  testing::Eq(0u)));
}

// The test serves and runs the loop in one thread: an attempt that waited would wait for ever.
TEST_F(Rejoin, NeitherBlocksTheLoopNorGivesUpWhateverTheServerDoes) {
  ZOR_MSG_SubscribeEventForOtherApp(kEvent, "daemon");
  const ZOR_MSG_REJOIN times = {10, 10, 20};
  Enable(&times);
  server_.Close();
  const std::string reply = MakeRegistrationReply("daemon").Bytes();
  Message tooLong = MakeRegistrationReply("daemon", 0, std::string(100000, 'x'));
  tooLong.header.bodyLength = 0xffffffff;
  const Message noFile = MakeMessage(ZOR_MSG_REGISTER_APP | ZOR_MSG_BODY_IN_FILE, "", "daemon", 0, "/etc/passwd");
  for (const std::string &bytes :
       {std::string(), reply.substr(0, 17), reply.substr(0, 41), tooLong.Bytes(), noFile.Bytes()}) {
    const BusPeer silent = Accept();  // until the library gives up
    silent.Send(bytes);
    EXPECT_TRUE(RunLoopUntil([&] { return silent.ClosedByOther(std::chrono::milliseconds(0)); }));
    BusPeer closing = Accept();
    closing.Send(bytes);
    closing.Close();
  }
  ::close(listener_);  // no server at all, for some attempts
  ::unlink(root_.Path("/var/msgsvr").c_str());
  for (int turns = 0; turns < 5; ++turns) RunLoopUntil([] { return true; });
  const ZOR_MSG_REJOIN patient = {10, 10, 60000};
  ASSERT_EQ(ZOR_MSG_EnableRejoin(&patient), ZOR_OK);
  Listen();
  server_ = Accept();
  // The reply in pieces, with a message in front of it.
  const std::string bytes = MakeMessage(kType, "other", "daemon", 5, "body").Bytes() + reply;
  for (size_t at = 0; at < bytes.size(); at += 23) {
    server_.Send(bytes.substr(at, 23));
    RunLoopUntil([] { return true; });
  }
  EXPECT_TRUE(RunLoopUntil([] { return history.size() == 3; }));
  EXPECT_THAT(history, testing::UnorderedElementsAre("link 1", "link 2", "5"));
  EXPECT_THAT(Repeated(), ElementsAre("702 2da65 "));
}

TEST_F(Rejoin, EndsWithTheBus) {
  Enable();
  ZOR_EVT_SubscribeAllEvent();
  Ask(50);
  server_.Close();
  const BusPeer attempt = Accept();
  ZOR_MSG_Destroy();
  EXPECT_TRUE(attempt.ClosedByOther());
  EXPECT_THAT(OnLoop(), ElementsAre("hook"));
  EXPECT_EQ(ZOR_MSG_SetLinkProc(OnLink, nullptr), ZOR_E_NOT_CONNECTED);
  EXPECT_EQ(ZOR_MSG_EnableRejoin(nullptr), ZOR_E_NOT_CONNECTED);
}

TEST_F(Rejoin, EndsWithTheBusAlsoInsideTheProcedure) {
  Enable();
  Ask(600000);
  destroyAtNext = true;
  server_.Close();
  ASSERT_TRUE(RunLoopUntil([] { return history.size() == 2; }));
  EXPECT_THAT(history, ElementsAre("link 1", "reply 65540"));
  EXPECT_THAT(OnLoop(), ElementsAre("hook"));
}

TEST_F(Rejoin, MayBeAskedForWhenTheConnectionHasEnded) {
  server_.Close();
  ASSERT_TRUE(RunLoopUntil(IsLost));
  Enable();
  Grant();
  EXPECT_THAT(history, ElementsAre("link 1", "link 2"));
}

TEST_F(Rejoin, CanBeHeardOfWithoutBeingDone) {
  char label[] = "link ";
  ASSERT_EQ(ZOR_MSG_SetLinkProc(OnLink, label), ZOR_OK);
  const ZOR_MSG_REJOIN contradiction = {10, 9, 0};
  EXPECT_EQ(ZOR_MSG_EnableRejoin(&contradiction), ZOR_E_ARGUMENT);
  Ask(2000);
  server_.Close();
  ASSERT_TRUE(RunLoopUntil([] { return history.size() == 2; }));
  EXPECT_THAT(history, ElementsAre("link 1", "reply 1"));
  EXPECT_THAT(OnLoop(), ElementsAre("hook"));
}

TEST_F(Rejoin, IsLeftToTheParentByAForkedChild) {
  Enable();
  Child child = Child::Function([&] {
    server_.Close();  // the child's copy
    if (!RunLoopUntil(IsLost)) return 1;
    return history.empty() && RejoinTimer() == 0u ? 0 : 2;
  });
  server_.Close();
  EXPECT_EQ(child.Wait(), 0);
  server_ = Accept();
  server_.Send(MakeRegistrationReply("daemon"));
  Child another = Child::Function([] {  // finds an attempt whose reply is there
    for (int turns = 0; turns < 5; ++turns) RunLoopUntil([] { return true; });
    return 0;
  });
  EXPECT_EQ(another.Wait(), 0);
  EXPECT_TRUE(RunLoopUntil([] { return history.back() == "link 2"; }));
}

}  // namespace
}  // namespace zor::test
