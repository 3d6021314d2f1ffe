#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/notifyclt.h>
#include <zor/uv.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/capture.h"
#include "support/child.h"
#include "support/notify_frame.h"

namespace zor::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr uint32_t kType = 0x55;
// Hides the machine's own reboot command, however many sends fail.
[[maybe_unused]] const int noReboot = ::setenv("PATH", "/nonexistent", 1);
// What the handlers were called with; "-" stands for null.
std::vector<std::string> calls;

// The client on one end of a socket pair, without a server, a registration or a watcher on the loop. Data that
// the peer sends before a request is in the socket as its reply.
class NotifyPeer : public testing::Test {
 protected:
  NotifyPeer() { ZOR_NOTIFYCLT_SwitchSock(pair_.near.Release()); }
  ~NotifyPeer() override { ZOR_NOTIFYCLT_Destroy(); }

  // The status, the length and the block that a request to module 9 returns.
  static std::string Request() {
    void *block = nullptr;
    uint32_t length = 0x1234;
    const uint32_t status = ZOR_NOTIFYCLT_SendSynNotify(9, kType, "ask", 3, &block, &length);
    const std::string text = block == nullptr ? "null" : std::string(static_cast<const char *>(block), length);
    std::free(block);
    return std::to_string(status) + ' ' + std::to_string(length) + ' ' + text;
  }
  // The reply to the request that the client sends next.
  static NotifyFrame NextReply(uint32_t sequence, std::string data) {
    return MakeReply(MakeRequest(kType, sequence, 0, 9), std::move(data));
  }
  // Sends a notification; returns what it prints.
  static std::string Post(uint32_t status) {
    Capture output;
    EXPECT_EQ(ZOR_NOTIFYCLT_PostSimpleAsynNotify(9, 0x77, 1, 2), status);
    return output.Text();
  }

  SocketPair pair_;
  const BusPeer &peer_ = pair_.far;
};

TEST_F(NotifyPeer, GetsPartsOneAfterTheOtherAndMissingOnesAsZeros) {
  const struct {
    const char *part1;
    const char *part2;
    std::string data;
  } cases[] = {{"abc", "de", "abcde"}, {nullptr, "de", {"\0\0\0de", 5}}, {"abc", nullptr, {"abc\0\0", 5}}};
  uint32_t sequence = 0;
  for (const auto &each : cases) {
    ASSERT_EQ(ZOR_NOTIFYCLT_PostAsynNotify(9, 0x77, each.part1, 3, each.part2, 2), ZOR_NOTIFY_OK);
    const uint32_t head[12] = {0x77, ++sequence, 0, 9, 0, 1, 5, 3, 2, 0, 0, 1};
    EXPECT_EQ(peer_.Receive(53), std::string(reinterpret_cast<const char *>(head), sizeof head) + each.data);
  }
  const char byte = 0;
  const Capture output;
  EXPECT_EQ(ZOR_NOTIFYCLT_PostAsynNotify(9, 1, &byte, 0xffffffff, &byte, 1), ZOR_NOTIFY_E_NO_MEMORY);
  EXPECT_EQ(ZOR_NOTIFYCLT_PostAsynNotify(9, 1, &byte, 0x800000 - 47, nullptr, 0), ZOR_NOTIFY_E_NO_MEMORY);
  EXPECT_EQ(ZOR_NOTIFYCLT_SendSynNotify(9, 1, &byte, 0xffffffff, nullptr, nullptr), ZOR_NOTIFY_E_NO_MEMORY);
  EXPECT_TRUE(peer_.NothingArrived());
  pair_.far.Close();
  EXPECT_EQ(ZOR_NOTIFYCLT_PostSimpleAsynNotify(9, 1, 0, 0), ZOR_NOTIFY_E_TIMEOUT) << "and no signal";
}

TEST_F(NotifyPeer, GetsTheMessagesOfThreadsUnmixed) {
  constexpr uint32_t kLength = 300'000;  // more than fits the socket at once
  std::vector<std::thread> threads;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    threads.emplace_back([data = std::string(kLength, letter)] {
      for (int i = 0; i < 20; ++i) ZOR_NOTIFYCLT_PostAsynNotify(9, 1, data.data(), kLength, nullptr, 0);
    });
  }
  std::set<uint32_t> sequences;
  for (int count = 0; count < 80; ++count) {
    const auto frame = ReceiveNotify(peer_);
    if (!frame) break;
    sequences.insert(frame->head.seq);
    EXPECT_EQ(frame->data.find_first_not_of(frame->data[0]), std::string::npos);
  }
  EXPECT_EQ(sequences.size(), 80u);
  for (std::thread &thread : threads) thread.join();
}

TEST_F(NotifyPeer, IsRebootedForAfterTenUnwritableSendsInARowAndServedAllTheSame) {
  const TempRoot root;
  const std::string command = root.Path("/reboot");
  const std::string marker = root.Path("/rebooted");
  std::ofstream(command) << "#!/bin/sh\n: > " << marker << "\n";
  ::chmod(command.c_str(), 0700);
  ::setenv("PATH", root.Path("").c_str(), 1);

  ZOR_NOTIFYCLT_SwitchSock(-1);
  for (int i = 0; i < 9; ++i) Post(ZOR_NOTIFY_E_NOT_WRITABLE);
  ZOR_NOTIFYCLT_SwitchSock(::dup(peer_.fd()));
  EXPECT_EQ(Post(ZOR_NOTIFY_OK), "");  // starts the count again
  ZOR_NOTIFYCLT_SwitchSock(-1);
  for (int i = 0; i < 10; ++i) Post(ZOR_NOTIFY_E_NOT_WRITABLE);
  ZOR_NOTIFYCLT_Destroy();  // does not forget the failures
  ZOR_NOTIFYCLT_SwitchSock(::dup(peer_.fd()));
  EXPECT_EQ(Post(ZOR_NOTIFY_OK), "error: notifyclient failed more than 10 times, reboot devie!!");
  EXPECT_TRUE(WaitUntil([&] { return std::filesystem::exists(marker); }));
  EXPECT_EQ(Post(ZOR_NOTIFY_OK), "");  // the send that rebooted went through
}

TEST_F(NotifyPeer, RepliesMatchByTypeAndSequenceAloneInAnySize) {
  NotifyFrame odd = NextReply(1, "result");
  odd.head.ack_tag = 1;
  odd.head.sync_tag = 0;
  odd.head.source_id = 77;
  peer_.Send(NextReply(2, "late").Bytes() + odd.Bytes() + NextReply(2, "").Bytes());
  EXPECT_EQ(Request(), "0 6 result");
  const uint32_t head[12] = {kType, 1, 0, 9, 1, 1, 3, 0, 0, 0x1234, 0, 0};
  EXPECT_EQ(peer_.Receive(51), std::string(reinterpret_cast<const char *>(head), sizeof head) + "ask");
  EXPECT_EQ(Request(), "0 0 null");
  const std::string large(1 << 20, 'x');
  const Child sender = Child::Function([&] { return peer_.Send(NextReply(3, large).Bytes()), 0; });
  EXPECT_EQ(Request(), "0 1048576 " + large) << "comes in pieces";
}

TEST_F(NotifyPeer, EndsTheRequestByDamageAndLeavesTheResultAlone) {
  const auto lying = [](uint32_t length) {
    NotifyFrame frame = NextReply(1, "ab");
    frame.head.data_len = length;
    return frame.Bytes();
  };
  const struct {
    std::string bytes;
    uint32_t status;
    const char *text;
  } cases[] = {
      {"", ZOR_NOTIFY_E_SERVER_GONE, "peer dead when read head"},
      {std::string(47, 'x'), ZOR_NOTIFY_E_IO, "got len=47!\n"},
      {lying(6), ZOR_NOTIFY_E_SERVER_GONE, "peer dead when read body"},
      {lying(0x800001), ZOR_NOTIFY_E_NO_MEMORY, "ooo notifyclient data Length too long: 800001, msg 55 from 9 to 0.\n"},
      {lying(0x800000), ZOR_NOTIFY_E_NO_MEMORY, "malloc 4M, return NULL, malloc len=8388657\n"},
  };
  for (const auto &each : cases) {
    SCOPED_TRACE(each.text);
    SocketPair pair;
    ZOR_NOTIFYCLT_SwitchSock(pair.near.Release());
    const bool serverGone = each.status == ZOR_NOTIFY_E_SERVER_GONE;
    pair.far.Send(each.bytes);
    if (serverGone) ::shutdown(pair.far.fd(), SHUT_WR);
    Capture output;
    EXPECT_EQ(Request(), std::to_string(each.status) + " 4660 null");
    EXPECT_THAT(output.Text(), HasSubstr(each.text));
    ReceiveNotify(pair.far);
    EXPECT_NE(pair.far.NothingArrived(), serverGone) << "only then the client is destroyed";
    ZOR_NOTIFYCLT_Destroy();
  }
}

uint32_t Record(const std::string &handler, const void *data, const void *more, uint32_t status) {
  const auto text = [](const void *part) { return part == nullptr ? "-" : static_cast<const char *>(part); };
  calls.push_back(handler + " " + text(data) + " " + text(more));
  return status;
}

uint32_t SyncProc(void *data, void **reply, uint32_t *length) {
  if (reply == nullptr || length == nullptr) return Record("unexpected", data, nullptr, 21);
  *reply = ::strdup("result");
  *length = 6;
  return Record("sync", data, nullptr, 20);
}

// Dispatches a frame as the client receives it: one block, with a NUL after the data.
uint32_t Dispatch(const NotifyFrame &frame) {
  std::string bytes = frame.Bytes();
  return ZOR_NOTIFYCLT_MsgFilterProc(reinterpret_cast<ZOR_NOTIFY_MSG *>(bytes.data()));
}

TEST_F(NotifyPeer, GetsItsReplyFromTheHandlerWhichMayDestroyTheClientElseFromTheDefaultElseEmpty) {
  const auto expectReply = [this](const std::string &data) {
    const NotifyFrame request = MakeRequest(kType, 9, 26, 0 /* the id of a client that never registered */, "ask");
    EXPECT_EQ(Dispatch(request), ZOR_NOTIFY_OK);
    EXPECT_EQ(ReceiveNotify(peer_).value_or(NotifyFrame{}).Bytes(), MakeReply(request, data).Bytes());
  };
  const NotifyFrame late = MakeReply(MakeRequest(kType, 9, 0, 26), "late");
  EXPECT_EQ(Dispatch(late), 0u);
  expectReply("");
  ZOR_NOTIYCLT_RegMsgProc([](uint32_t, void *data, void **a, uint32_t *l) { return SyncProc(data, a, l) + 1; },
                          nullptr);
  const void *entry = ZOR_NOTIFYCLT_RegAsyncMsgProc(kType, nullptr);
  expectReply("result");
  EXPECT_EQ(ZOR_NOTIFYCLT_RegSyncMsgProc(kType, SyncProc), entry);
  expectReply("result");
  EXPECT_EQ(Dispatch(late), 21u);
  EXPECT_EQ(Dispatch(MakeRequest(kType, 9, ZOR_NOTIFY_MID_SERVER, 0, "ask")), ZOR_NOTIFY_OK);
  EXPECT_THAT(calls, ElementsAre("sync ask -", "sync ask -", "unexpected late -", "sync ask -"));
  EXPECT_TRUE(peer_.NothingArrived()) << "neither the server's request nor the unexpected reply gets a reply";
  ZOR_NOTIFYCLT_RegSyncMsgProc(kType, [](void *data, void **reply, uint32_t *length) {
    ZOR_NOTIFYCLT_Destroy();
    return SyncProc(data, reply, length);
  });
  const Capture output;
  EXPECT_EQ(Dispatch(MakeRequest(kType, 9, 26, 0, "ask")), ZOR_NOTIFY_E_NOT_WRITABLE);
}

TEST_F(NotifyPeer, LiesAboutPartsWithinTheirData) {
  ZOR_NOTIFYCLT_RegAsyncMsgProc(kType, [](void *part1, void *part2) { return Record("async", part1, part2, 22); });
  const struct {
    const char *data;
    uint32_t length1;
    uint32_t length2;
    const char *call;
  } cases[] = {
      {"abcde", 3, 2, "async abcde de"}, {"abcde", 3, 0, "async abcde -"},          {"", 0, 2, "async - -"},
      {"abcde", 6, 2, "async abcde -"},  {"abcde", 0xffffffff, 2, "async abcde -"},
  };
  for (const auto &entry : cases) {
    NotifyFrame frame = MakeAsync(kType, 26, 0, entry.data);
    frame.head.sub_data_len1 = entry.length1;
    frame.head.sub_data_len2 = entry.length2;
    EXPECT_EQ(Dispatch(frame), 22u);
    EXPECT_EQ(calls.back(), entry.call);
  }
}

// Runs the loop until it is idle for a moment; dispatches whatever is in the sockets.
void RunLoop() {
  EXPECT_EQ(ZOR_UV_LoopRun(nullptr, 20), 0x10005u);
}

// A notification server that only listens: the registration waits in the socket until the test accepts.
class NotifyConnect : public testing::Test {
 protected:
  NotifyConnect() {
    sockaddr_un address = {AF_UNIX, {}};
    root_.Path("/var/run/notify/notifyserver").copy(address.sun_path, sizeof address.sun_path - 1);
    ::bind(listener_.fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
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
    ZOR_NOTIFYCLT_RegAsyncMsgProc(kType, [](void *part1, void *) { return Record("", part1, nullptr, 0); });
    BusPeer peer = Accept();
    const uint32_t expected[14] = {0, 1, 26, 30, 0, 1, 8, 4, 4, 0, 0, 0, 26, 0};
    EXPECT_EQ(peer.Receive(56), std::string(reinterpret_cast<const char *>(expected), sizeof expected));
    return peer;
  }

  TempRoot root_;
  BusPeer listener_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
};

TEST_F(NotifyConnect, ConnectsOnceFromAPathOfItsOwnUnderTheNamesThatConnect) {
  for (const uint32_t mid : {0u, 103u}) EXPECT_EQ(ZOR_NOTIFYCLT_Init(mid), ZOR_NOTIFY_E_MID);
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

TEST_F(NotifyConnect, LoopDispatchesWhatARequestMetInOrderAndFollowsASwitchedDescriptor) {
  const BusPeer peer = Connect();
  std::string bytes;
  std::vector<std::string> expected;
  for (int number = 0; number < 1000; ++number) {
    expected.push_back(" " + std::to_string(number) + " -");
    bytes += MakeAsync(kType, 8, 26, std::to_string(number)).Bytes();
  }
  peer.Send(bytes + MakeReply(MakeRequest(7, 2, 26, 8)).Bytes());
  EXPECT_EQ(ZOR_NOTIFYCLT_SendSynNotify(8, 7, nullptr, 0, nullptr, nullptr), ZOR_NOTIFY_OK);
  EXPECT_TRUE(calls.empty());
  ReceiveNotify(peer);
  RunLoop();
  EXPECT_EQ(calls, expected);
  SocketPair pair;
  ZOR_NOTIFYCLT_SwitchSock(pair.near.Release());
  peer.Send(MakeAsync(kType, 8, 26, "old").Bytes());
  pair.far.Send(MakeAsync(kType, 8, 26, "new").Bytes());
  RunLoop();
  expected.push_back(" new -");
  EXPECT_EQ(calls, expected);
  EXPECT_TRUE(peer.NothingArrived());  // still open
}

TEST_F(NotifyConnect, DeathOfTheServerEndsTheClientWhichCanConnectAgain) {
  Connect().Close();
  Capture output;
  RunLoop();
  EXPECT_THAT(output.Text(), testing::HasSubstr("error: notify server dead when callback, destory client, my pid="));
  const BusPeer peer = Connect();
  int hooks = 0;
  ZOR_UV_WatcherIterateItem(nullptr, &hooks, [](UvWatcher *watcher, void *count) {
    if ((watcher->flags & UV_WATCHER_IDLE) != 0) ++*static_cast<int *>(count);
  });
  EXPECT_EQ(hooks, 1);
  ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());  // frees the watcher without notifying the client
  ZOR_NOTIFYCLT_Destroy();
  EXPECT_TRUE(peer.ClosedByOther());
}

}  // namespace
}  // namespace zor::test
