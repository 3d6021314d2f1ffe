#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/uv_io.h>
#include <zor/uv_loop.h>

#include <string>
#include <utility>
#include <vector>

#include "notifyclient/notify_fixture.h"

namespace zor::test {
namespace {

constexpr uint32_t kType = 0x55;
std::vector<std::string> calls;

uint32_t Record(void *part1, void *) {
  calls.emplace_back(static_cast<const char *>(part1));
  return 0;
}

// Runs the loop until nothing has happened for a moment; what lies in the sockets by now is dispatched.
void RunLoop() {
  EXPECT_EQ(ZOR_UV_LoopRun(nullptr, 20), 0x10005u);
}

uint32_t CountIdleHooks() {
  uint32_t count = 0;
  ZOR_UV_WatcherIterateItem(nullptr, &count, [](UvWatcher *watcher, void *counter) {
    if ((watcher->flags & UV_WATCHER_IDLE) != 0) ++*static_cast<uint32_t *>(counter);
  });
  return count;
}

// A notification server that only listens: the registration waits in the socket until the test accepts.
class NotifyConnect : public testing::Test {
 protected:
  NotifyConnect() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    root_.Path("/var/run/notify/notifyserver").copy(address.sun_path, sizeof address.sun_path - 1);
    ::bind(listener_.fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    calls.clear();
  }
  ~NotifyConnect() override {
    ZOR_NOTIFYCLT_Destroy();
    ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());
  }

  BusPeer Accept() { return BusPeer(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC)); }
  // Connects the client as module 26 with a handler and gives the far end, the registration read.
  BusPeer Connect() {
    ::listen(listener_.fd(), 4);
    EXPECT_EQ(ZOR_NOTIFYCLT_Init(26), ZOR_NOTIFY_OK);
    ZOR_NOTIFYCLT_RegAsyncMsgProc(kType, Record);
    BusPeer peer = Accept();
    const uint32_t expected[14] = {0, 1, 26, 30, 0, 1, 8, 4, 4, 0, 0, 0, 26, 0};
    EXPECT_EQ(peer.Receive(56), std::string(reinterpret_cast<const char *>(expected), sizeof expected));
    return peer;
  }

  TempRoot root_;
  BusPeer listener_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
};

TEST_F(NotifyConnect, ConnectsOnceFromAPathOfItsOwnUnderTheNamesThatConnect) {
  EXPECT_EQ(ZOR_NOTIFYCLT_Init(0), ZOR_NOTIFY_E_MID);
  EXPECT_EQ(ZOR_NOTIFYCLT_Init(103), ZOR_NOTIFY_E_MID);
  EXPECT_EQ(ZOR_NOTIFYCLT_InitByName("cms"), ZOR_NOTIFY_E_CONNECT);
  for (const char *other : {"sms", "", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(ZOR_NOTIFYCLT_InitByName(other), ZOR_NOTIFY_OK);
  }
  ::listen(listener_.fd(), 4);
  EXPECT_EQ(ZOR_NOTIFYCLT_InitByName("cms"), ZOR_NOTIFY_OK);
  EXPECT_EQ(ReceiveNotify(Accept())->head.source_id, 8u);
  EXPECT_EQ(ZOR_NOTIFYCLT_Init(26), ZOR_NOTIFY_OK);
  EXPECT_EQ(Accept().fd(), -1);
  char name[64];
  std::snprintf(name, sizeof name, "/var/run/notify/client%05d", ::getpid());
  struct stat status;
  ASSERT_EQ(::stat(root_.Path(name).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & (S_IFMT | S_IWOTH), mode_t{S_IFSOCK});
}

TEST_F(NotifyConnect, MessagesMetDuringARequestFollowFromTheIdleHookInOrder) {
  const BusPeer peer = Connect();
  std::string bytes;
  std::vector<std::string> expected;
  for (int number = 0; number < 1000; ++number) {
    expected.push_back(std::to_string(number));
    bytes += MakeAsync(kType, 8, 26, expected.back()).Bytes();
  }
  peer.Send(bytes + MakeAnswer(MakeRequest(7, 2, 26, 8)).Bytes());
  EXPECT_EQ(ZOR_NOTIFYCLT_SendSynNotify(8, 7, nullptr, 0, nullptr, nullptr), ZOR_NOTIFY_OK);
  EXPECT_TRUE(calls.empty());
  RunLoop();
  EXPECT_EQ(calls, expected);
}

TEST_F(NotifyConnect, DeathOfTheServerEndsTheClientWhichCanConnectAgain) {
  Connect().Close();
  Capture output;
  RunLoop();
  EXPECT_THAT(output.Text(), testing::HasSubstr("error: notify server dead when callback, destory client, my pid="));
  const BusPeer peer = Connect();
  EXPECT_EQ(CountIdleHooks(), 1u);
  ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());  // frees the watcher behind the client's back
  ZOR_NOTIFYCLT_Destroy();
  EXPECT_TRUE(peer.ClosedByOther());
}

TEST_F(NotifyConnect, LoopFollowsASwitchedDescriptor) {
  const BusPeer old = Connect();
  SocketPair pair;
  ZOR_NOTIFYCLT_SwitchSock(pair.near.Release());
  old.Send(MakeAsync(kType, 8, 26, "old").Bytes());
  pair.far.Send(MakeAsync(kType, 8, 26, "new").Bytes());
  RunLoop();
  EXPECT_THAT(calls, testing::ElementsAre("new"));
  EXPECT_TRUE(old.NothingArrived());  // still open
}

TEST(NotifyModule, NamesAndIdsAreFoundBothWays) {
  const std::pair<const char *, uint32_t> modules[] = {{"cms", 8}, {"sms", 1}, {"oled", 14}, {"qlclient", 99}};
  for (const auto &[name, mid] : modules) {
    EXPECT_EQ(ZOR_NOTIFYCLT_GetMIDByName(name), mid);
    EXPECT_EQ(ZOR_NOTIFYCLT_GetAllowMIDByName(name), mid);
    EXPECT_STREQ(ZOR_NOTIFYCLT_GetNameByMID(mid), name);
  }
  for (const char *name : {"qlclien", "qlclientx", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(ZOR_NOTIFYCLT_GetMIDByName(name), 0u);
  }
  EXPECT_EQ(ZOR_NOTIFYCLT_GetNameByMID(30), nullptr);
}

}  // namespace
}  // namespace zor::test
