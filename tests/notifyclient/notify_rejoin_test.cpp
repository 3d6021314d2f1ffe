#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/notify_rejoin.h>
#include <zor/notifyclt.h>
#include <zor/uv.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/failing_alloc.h"
#include "support/in_memory.h"
#include "support/loop.h"
#include "support/notify_frame.h"

namespace zor::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr uint32_t kMid = 26;
constexpr uint32_t kType = 0x55;
constexpr ZOR_MSG_REJOIN kQuick = {10, 10, 0};
[[maybe_unused]] const int noReboot = ::setenv("PATH", "/nonexistent", 1);

std::vector<std::string> history;
enum class Then { kNothing, kDestroy, kInit } then;

void OnLink(uint32_t event, void *data) {
  history.push_back(static_cast<const char *>(data) + std::to_string(event));
  if (then == Then::kDestroy) ZOR_NOTIFYCLT_Destroy();
  if (then == Then::kInit) ZOR_NOTIFYCLT_Init(kMid);
}

uint32_t OnNotification(void *part1, void *) {
  history.emplace_back(static_cast<const char *>(part1));
  return ZOR_NOTIFY_OK;
}

uint32_t Post() {
  return ZOR_NOTIFYCLT_PostSimpleAsynNotify(9, 0x77, 1, 2);
}

// A notification server of the test's own: nothing here may wait for the library while it does not run.
class NotifyRejoin : public testing::Test {
 protected:
  NotifyRejoin() {
    history.clear();
    then = Then::kNothing;
    Listen();
    EXPECT_EQ(ZOR_NOTIFYCLT_Init(kMid), ZOR_NOTIFY_OK);
    ZOR_NOTIFYCLT_RegAsyncMsgProc(kType, OnNotification);
    server_ = Accept();
    EXPECT_EQ(ZOR_NOTIFYCLT_SetLinkProc(OnLink, label_), ZOR_NOTIFY_OK);
  }
  ~NotifyRejoin() override { ZOR_NOTIFYCLT_Destroy(); }

  void Listen() {
    const std::string path = root_.Path("/var/run/notify/notifyserver");
    ::unlink(path.c_str());
    listener_ = BusPeer(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address = {AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listener_.fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener_.fd(), 4), 0);
  }
  // The next connection; its registration was received.
  BusPeer Accept() {
    int fd = -1;
    EXPECT_TRUE(RunLoopUntil([&] { return (fd = ::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC)) >= 0; }));
    BusPeer peer(fd);
    const NotifyFrame frame = ReceiveNotify(peer).value_or(NotifyFrame());
    EXPECT_EQ(frame.head.msg_type, ZOR_NOTIFY_TYPE_REGISTER);
    EXPECT_EQ(frame.head.source_id, kMid);
    EXPECT_EQ(frame.data, InMemory(uint32_t{kMid}, 0u));
    return peer;
  }
  static bool Heard(const char *event) {
    return RunLoopUntil([&] { return !history.empty() && history.back() == event; });
  }

  TempRoot root_;
  char label_[6] = "link ";
  BusPeer listener_;
  BusPeer server_;
};

TEST_F(NotifyRejoin, KeepsHandlersAndNeverRebootsWhileTheServerIsAway) {
  ASSERT_EQ(ZOR_NOTIFYCLT_EnableRejoin(&kQuick), ZOR_NOTIFY_OK);
  for (const bool noticedByRequest : {false, true}) {
    SCOPED_TRACE(noticedByRequest);
    history.clear();
    listener_.Close();
    server_.Send(MakeAsync(kType, 8, kMid, "last words").Bytes());
    Capture output;
    if (noticedByRequest) {
      ::shutdown(server_.fd(), SHUT_WR);
      EXPECT_EQ(ZOR_NOTIFYCLT_SendSynNotify(8, 7, nullptr, 0, nullptr, nullptr), ZOR_NOTIFY_E_SERVER_GONE);
      EXPECT_THAT(history, IsEmpty()) << "it is told from the loop";
    }
    server_.Close();
    ASSERT_TRUE(Heard("link 1"));
    for (int count = 0; count < 12; ++count) EXPECT_EQ(Post(), ZOR_NOTIFY_E_TIMEOUT);
    EXPECT_EQ(ZOR_NOTIFYCLT_Init(kMid), ZOR_NOTIFY_OK) << "is left to the attempts";
    for (int turns = 0; turns < 5; ++turns) RunLoopUntil([] { return true; });  // attempts that find no server
    Listen();
    server_ = Accept();
    ASSERT_TRUE(Heard("link 2"));
    EXPECT_THAT(history, testing::UnorderedElementsAre("last words", "link 1", "link 2"));
    EXPECT_EQ(Post(), ZOR_NOTIFY_OK);
    EXPECT_EQ(ReceiveNotify(server_)->head.source_id, kMid);
    server_.Send(MakeAsync(kType, 8, kMid, "hello again").Bytes());
    ASSERT_TRUE(Heard("hello again"));
    EXPECT_THAT(output.Text(), Not(HasSubstr("reboot")));
  }
}

TEST_F(NotifyRejoin, SurvivesEachFailedAllocationOfAnAttempt) {
  ASSERT_EQ(ZOR_NOTIFYCLT_EnableRejoin(&kQuick), ZOR_NOTIFY_OK);
  ZOR_UTIL_TimerAdd(
      10, 0, [](void *) { ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault()); }, nullptr);
  bool failed = true;
  for (unsigned passing = 0; failed; ++passing) {
    listener_.Close();  // no attempt succeeds before it is awaited
    server_.Close();
    ASSERT_TRUE(Heard("link 1"));
    Listen();
    history.reserve(history.size() + 4);
    const size_t before = history.size();
    {
      const FailingAllocations allocations(passing, 1);
      while (history.size() == before) ZOR_UV_LoopRun(nullptr, 0);
      failed = allocations.Failed();
    }
    ASSERT_EQ(history.back(), "link 2");
    // A failed attempt that got as far as connecting has left its connection behind, closed.
    do {
      server_ = BusPeer(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
      ASSERT_GE(server_.fd(), 0);
    } while (!ReceiveNotify(server_) || server_.ClosedByOther(std::chrono::milliseconds(0)));
    ASSERT_LT(passing, 100u);
  }
  server_.Send(MakeAsync(kType, 8, kMid, "served").Bytes());
  EXPECT_TRUE(Heard("served"));
}

TEST_F(NotifyRejoin, IsLeftToAProcedureThatDoesNotAskForIt) {
  const ZOR_MSG_REJOIN contradiction = {10, 9, 0};
  EXPECT_EQ(ZOR_NOTIFYCLT_EnableRejoin(&contradiction), ZOR_NOTIFY_E_ARGUMENT);
  then = Then::kInit;
  server_.Close();
  ASSERT_TRUE(Heard("link 1"));
  then = Then::kNothing;
  server_ = Accept();
  server_.Send(MakeAsync(kType, 8, kMid, "no handler").Bytes());
  server_.Close();
  const auto posts = [] { return Post() == ZOR_NOTIFY_E_NOT_WRITABLE; };
  EXPECT_TRUE(RunLoopUntil(posts)) << "the end destroys the client as if it had never asked";
  EXPECT_THAT(history, ElementsAre("link 1"));
  EXPECT_EQ(ZOR_NOTIFYCLT_SetLinkProc(OnLink, nullptr), ZOR_NOTIFY_E_NOT_WRITABLE);
  EXPECT_EQ(ZOR_NOTIFYCLT_EnableRejoin(nullptr), ZOR_NOTIFY_E_NOT_WRITABLE);
}

TEST_F(NotifyRejoin, EndsWithTheClientWithASwitchedDescriptorAndInAChild) {
  ASSERT_EQ(ZOR_NOTIFYCLT_EnableRejoin(&kQuick), ZOR_NOTIFY_OK);
  Child child = Child::Function([&] {
    server_.Close();  // the child's copy
    for (int turns = 0; turns < 5; ++turns) RunLoopUntil([] { return true; });
    return history.empty() ? 0 : 1;
  });
  listener_.Close();
  server_.Close();
  EXPECT_EQ(child.Wait(), 0);
  ASSERT_TRUE(Heard("link 1"));
  SocketPair pair;
  ZOR_NOTIFYCLT_SwitchSock(pair.near.Release());
  for (int turns = 0; turns < 5; ++turns) RunLoopUntil([] { return true; });
  EXPECT_THAT(history, ElementsAre("link 1"));
  pair.far.Send(MakeAsync(kType, 8, kMid, "switched").Bytes());
  ASSERT_TRUE(Heard("switched"));
  then = Then::kDestroy;
  pair.far.Close();
  ASSERT_TRUE(Heard("link 1"));
  EXPECT_THAT(OnLoop(), ElementsAre("hook"));
  EXPECT_EQ(Post(), ZOR_NOTIFY_E_NOT_WRITABLE);
}

}  // namespace
}  // namespace zor::test
