#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <zor/msg.h>

#include <future>
#include <string>
#include <vector>

#include "support/failing_alloc.h"
#include "support/loop.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

using testing::ElementsAre;

constexpr uint32_t kType = 0x1234;
constexpr uint32_t kEvent = 0x2da65;
constexpr ZOR_MSG_REJOIN kQuick = {10, 10, 60000};

// What the daemon heard and got, in order.
std::vector<std::string> history;

// A server on another board, in this process and thread.
class RemoteRejoin : public testing::Test {
 protected:
  RemoteRejoin() {
    history.clear();
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto *generic = static_cast<sockaddr *>(static_cast<void *>(&address));
    EXPECT_EQ(::bind(listener_.fd(), generic, size), 0);
    EXPECT_EQ(::listen(listener_.fd(), 5), 0);
    EXPECT_EQ(::getsockname(listener_.fd(), generic, &size), 0);
    auto server = std::async(std::launch::async, [this] {
      WaitUntil([this] { return (server_ = Accepted()).fd() >= 0; });
      server_.ReceiveMessage();
      server_.Send(MakeRegistrationReply("daemon"));
    });
    EXPECT_EQ(ZOR_MSG_InitSlaveApp("daemon", "127.0.0.1", ntohs(address.sin_port)), ZOR_OK);
    server.wait();
    ZOR_MSG_RegisterMsgProc([](ZOR_MSG_HEAD *msg, uint32_t) { history.push_back(std::to_string(msg->data)); });
    EXPECT_EQ(ZOR_MSG_EnableRejoin(&kQuick), ZOR_OK);
    // Takes no memory.
    const auto onLink = [](uint32_t event, void *) { history.push_back("link " + std::to_string(event)); };
    EXPECT_EQ(ZOR_MSG_SetLinkProc(onLink, nullptr), ZOR_OK);
  }
  ~RemoteRejoin() override { ZOR_MSG_Destroy(); }

  BusPeer Accepted() { return BusPeer(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC)); }
  // Connections whose registration was received get their reply, those that were given up are forgotten.
  void Serve(uint32_t swap) {
    for (BusPeer peer = Accepted(); peer.fd() >= 0; peer = Accepted()) newcomers_.push_back(std::move(peer));
    for (BusPeer &peer : newcomers_) {
      if (peer.fd() < 0 || peer.NothingArrived()) continue;
      if (peer.ReceiveMessage()) {
        peer.Send(MakeRegistrationReply("daemon", swap));
        server_ = std::move(peer);
      } else {
        peer.Close();
      }
    }
  }
  bool Returns(uint32_t swap) {
    return RunLoopUntil([&] {
      Serve(swap);
      return !history.empty() && history.back() == "link 2";
    });
  }

  BusPeer listener_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
  BusPeer server_;
  std::vector<BusPeer> newcomers_;
};

TEST_F(RemoteRejoin, FollowsTheByteOrderOfEachConnection) {
  ZOR_MSG_SubscribeEventForOtherApp(kEvent, "daemon");
  ASSERT_EQ(server_.ReceiveMessage()->header.data, kEvent);
  for (const uint32_t swap : {1u, 0u, 1u}) {
    const auto ordered = [&](uint32_t word) { return swap != 0 ? __builtin_bswap32(word) : word; };
    const Message words = MakeMessage(ordered(kType), "other", "daemon", ordered(7));
    history.clear();
    server_.Close();
    ASSERT_TRUE(Returns(swap));
    const Message standing = server_.ReceiveMessage().value_or(Message());
    EXPECT_EQ(standing.header.type, ordered(ZOR_MSG_SUBSCRIBE_EVENT));
    EXPECT_EQ(standing.header.data, ordered(kEvent));
    EXPECT_EQ(ZOR_MSG_SendSimpleMsg("other", kType, 8), ZOR_OK);
    EXPECT_EQ(server_.ReceiveMessage()->header.data, ordered(8));
    server_.Send(words);
    EXPECT_TRUE(RunLoopUntil([] { return history.back() == "7"; }));
    EXPECT_THAT(history, ElementsAre("link 1", "link 2", "7"));
  }
}

TEST_F(RemoteRejoin, SurvivesEachFailedAllocationOfAnAttempt) {
  ZOR_MSG_SubscribeEventForOtherApp(kEvent, "daemon");
  ZOR_UTIL_TimerAdd(
      5, 0, [](void *) { ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault()); }, nullptr);
  bool failed = true;
  for (unsigned passing = 0; failed; ++passing) {
    ASSERT_LT(passing, 100u);
    history.clear();
    history.reserve(8);
    server_.Close();
    ASSERT_TRUE(RunLoopUntil([] { return !history.empty(); }));
    failed = false;
    while (history.back() != "link 2") {
      Serve(0);
      const FailingAllocations allocations(passing, failed ? 0 : 1);
      ZOR_UV_LoopRun(nullptr, 0);
      failed = failed || allocations.Failed();
    }
    EXPECT_EQ(ZOR_MSG_SendSimpleMsg("other", kType, passing), ZOR_OK);
    while (const auto message = server_.ReceiveMessage()) {
      if (message->header.data == passing) break;
      EXPECT_EQ(message->header.data, kEvent);
    }
  }
}

}  // namespace
}  // namespace zor::test
