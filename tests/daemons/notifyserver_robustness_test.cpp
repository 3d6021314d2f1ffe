#include <poll.h>
#include <zor/notify_control_wire.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "daemons/notifyserver_fixture.h"

namespace zor::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr uint32_t kCms = 8;
constexpr uint32_t kWeb = 26;
constexpr uint32_t kType = 0x55;

class NotifyServerRobustness : public NotifyServerTest {};

// One request of web to cms and back.
void ExpectConversation(const BusPeer &web, const BusPeer &cms, uint32_t number) {
  const NotifyFrame request = MakeRequest(kType, number, kWeb, kCms, "ask");
  web.Send(request.Bytes());
  ASSERT_TRUE(ReceiveNotify(cms));
  cms.Send(MakeReply(request, "result").Bytes());
  const auto reply = ReceiveNotify(web);
  ASSERT_TRUE(reply);
  ASSERT_EQ(reply->Bytes(), MakeReply(request, "result").Bytes());
}

NotifyFrame WithTags(uint32_t sync, uint32_t ack) {
  NotifyFrame frame = MakeAsync(kType, kWeb, kCms);
  frame.head.sync_tag = sync;
  frame.head.ack_tag = ack;
  return frame;
}

NotifyFrame WithLengths(uint32_t data, uint32_t part1, uint32_t part2) {
  NotifyFrame frame = MakeAsync(kType, kWeb, kCms, "ab");
  frame.head.data_len = data;
  frame.head.sub_data_len1 = part1;
  frame.head.sub_data_len2 = part2;
  return frame;
}

TEST_F(NotifyServerRobustness, MalformedFrameEndsItsSenderAlone) {
  Start();
  const BusPeer cms = Register(kCms);
  const BusPeer web = Register(kWeb);
  const struct {
    NotifyFrame frame;
    const char *reason;
  } faults[] = {
      {WithLengths(0x800001, 0, 0), "oversized"}, {WithLengths(2, 0xffffffff, 3), "parts longer than its data"},
      {WithTags(2, 1), "not a notification"},     {WithTags(0, 2), "not a notification"},
      {WithTags(1, 0), "not a notification"},     {MakeRegistration(9), "second id"},
  };
  for (const auto &fault : faults) {
    const BusPeer client = Register(kWeb);
    client.Send(fault.frame.Bytes());
    EXPECT_TRUE(client.ClosedByOther());
    ExpectConversation(web, cms, 1);
  }
  EXPECT_TRUE(cms.NothingArrived());
  const std::string log = Stop();
  for (const auto &fault : faults) EXPECT_THAT(log, HasSubstr(fault.reason));
  EXPECT_THAT(log, HasSubstr("notifyserver: module 26 (pid "));
}

TEST_F(NotifyServerRobustness, ClientMustRegisterFirstAndUnderAnIdThatModulesHave) {
  Start();
  for (const NotifyFrame &frame :
       {MakeRegistration(0), MakeRegistration(30), MakeRegistration(103), MakeAsync(0, kWeb, 30) /* without an id */,
        WithLengths(65, 0, 0) /* nor make the server wait for long data */, MakeRequest(kType, 1, kWeb, kCms)}) {
    const BusPeer client = Connect();
    client.Send(frame.Bytes());
    EXPECT_TRUE(client.ClosedByOther());
  }
  EXPECT_THAT(Stop(), HasSubstr("an unregistered client (pid "));
}

TEST_F(NotifyServerRobustness, SlowReaderIsCutOffWhileOthersGoOn) {
  Start("max_data_bytes = 1000\nqueue_bytes = 8192\n");
  const BusPeer cms = Register(kCms);
  const BusPeer web = Register(kWeb);
  const BusPeer slow = Register(1);
  const BusPeer flood = Register(2);
  const NotifyFrame asked = MakeRequest(kType, 1, kWeb, 1);
  web.Send(asked.Bytes());
  const std::string piece = MakeAsync(kType, 2, 1, std::string(1000, 'x')).Bytes();
  for (int count = 0; web.NothingArrived() && count < 10'000; ++count) {
    flood.Send(piece);
    Settle(flood, 2);
  }
  // The flood ends with the reply to the request that the slow reader never saw.
  const auto reply = ReceiveNotify(web);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->Bytes(), MakeReply(asked).Bytes());
  ExpectConversation(web, cms, 2);

  const std::string log = Stop();
  EXPECT_THAT(log, testing::ContainsRegex("module 1 \\(pid [0-9]+\\) cut off: its output queue is full, [1-9][0-9]* "
                                          "messages lost"));
  EXPECT_THAT(log, Not(HasSubstr("module 2")));
}

TEST_F(NotifyServerRobustness, HalfSentFramesTakeNoMoreThanTheirShareAndTheLargestIsCutOff) {
  Start("max_data_bytes = 65536\nqueue_bytes = 98304\nuser_bytes = 262144\nmemory_bytes = 262144\n");
  const BusPeer cms = Register(kCms);
  const BusPeer web = Register(kWeb);
  const std::string half = MakeAsync(kType, 1, kCms, std::string(65000, 'x')).Bytes().substr(0, 60000);
  std::vector<BusPeer> hostile;
  for (uint32_t number = 0; number < 12; ++number) {
    hostile.push_back(Register(1));
    hostile.back().Send(half);
    ExpectConversation(web, cms, number);
  }
  const auto isOpen = [](const BusPeer &peer) {
    pollfd entry = {peer.fd(), POLLRDHUP, 0};
    return ::poll(&entry, 1, 0) == 0;
  };
  EXPECT_TRUE(WaitUntil([&] { return std::ranges::count_if(hostile, isOpen) <= 4; }));
  ExpectConversation(web, cms, 99);
  EXPECT_THAT(Stop(), testing::ContainsRegex("module 1 \\(pid [0-9]+\\) cut off: it holds most of its user's memory"));
}

TEST_F(NotifyServerRobustness, ConnectionMustRegisterInTimeUnlessItIsAnOperators) {
  Start("register_seconds = 3\n");
  const BusPeer web = Register(kWeb);
  const BusPeer tool = Connect();
  const NotifyFrame list = MakeRequest(ZOR_NOTIFY_CONTROL_LIST, 1, 0, ZOR_NOTIFY_MID_SERVER);
  tool.Send(list.Bytes());
  ASSERT_TRUE(ReceiveNotify(tool));
  const BusPeer silent = Connect();
  const BusPeer half = Connect();
  half.Send(MakeRegistration(1).Bytes().substr(0, 50));
  EXPECT_TRUE(silent.ClosedByOther());
  EXPECT_TRUE(half.ClosedByOther());
  Settle(web, kWeb);
  tool.Send(list.Bytes());
  EXPECT_TRUE(ReceiveNotify(tool));
  EXPECT_THAT(Stop(), HasSubstr("an unregistered client (pid " + std::to_string(::getpid()) +
                                ") cut off: it did not register in time"));
}

TEST_F(NotifyServerRobustness, ConnectionsOfOneUserLeaveRoomForOthers) {
  Start("user_clients = 2\n");
  const BusPeer cms = Register(kCms);
  {
    const BusPeer web = Register(kWeb);
    EXPECT_TRUE(Connect().ClosedByOther());
    ExpectConversation(web, cms, 1);
    if (::geteuid() == 0) {  // only root can become another user
      std::filesystem::permissions(root_.Path(""), std::filesystem::perms{0755});
      ASSERT_EQ(::seteuid(65534), 0);
      const BusPeer other = Register(kWeb);
      ASSERT_EQ(::seteuid(0), 0);
      ExpectConversation(web, cms, 2);
    }
  }
  const auto mayConnect = [this] {
    const BusPeer client = Connect();
    client.Send(MakeRegistration(kWeb).Bytes() + MakeRequest(kType, 1, kWeb, ZOR_NOTIFY_MID_SERVER).Bytes());
    return ReceiveNotify(client).has_value();
  };
  EXPECT_TRUE(WaitUntil(mayConnect)) << "once one of them has left";
  EXPECT_THAT(Stop(), HasSubstr("connection refused: user " + std::to_string(::geteuid()) + " has 2 connections"));
}

TEST_F(NotifyServerRobustness, HonestClientsTalkOnDuringAStormOfGarbage) {
  Start();
  const BusPeer cms = Register(kCms);
  const BusPeer web = Register(kWeb);
  std::mt19937 engine(20'240'601);
  const auto random = [&engine](uint32_t below) { return static_cast<uint32_t>(engine()) % below; };
  for (uint32_t round = 0; round < 300; ++round) {
    const BusPeer noise = random(3) == 0 ? Connect() : Register(1 + random(7));
    NotifyFrame frame = MakeAsync(kType, 0, 0);
    ZOR_NOTIFY_MSG &head = frame.head;
    for (uint32_t *word : {&head.msg_type, &head.des_id, &head.sync_tag, &head.ack_tag, &head.data_len,
                           &head.sub_data_len1, &head.sub_data_len2}) {
      if (random(3) == 0) *word = random(random(2) == 0 ? 120 : UINT32_MAX);
    }
    frame.data.assign(random(200), static_cast<char>(random(256)));
    // Messages addressed to the two would reach them.
    if (frame.head.des_id == kCms || frame.head.des_id == kWeb) frame.head.des_id = 0;
    const std::string bytes = frame.Bytes();
    noise.Send(std::string_view(bytes).substr(0, random(static_cast<uint32_t>(bytes.size()) + 1)));
    ExpectConversation(web, cms, round);
  }
  EXPECT_TRUE(cms.NothingArrived());
  EXPECT_TRUE(web.NothingArrived());
  Stop();
}

TEST_F(NotifyServerRobustness, DeliversWhatIsQueuedBeforeItStops) {
  const NotifyFrame longer = MakeAsync(kType, kWeb, kCms, std::string(2'000'000, 'x'));  // than a socket takes
  Start("stop_seconds = 60\n");
  const BusPeer cms = Register(kCms);
  const BusPeer web = Register(kWeb);
  web.Send(longer.Bytes());
  Settle(web, kWeb);
  server_->Signal(SIGTERM);
  EXPECT_EQ(ReceiveNotify(cms)->data, longer.data);
  EXPECT_EQ(Stop(), "");
  Start("stop_seconds = 1\n");
  const BusPeer silent = Register(kCms);
  const BusPeer talker = Register(kWeb);
  talker.Send(longer.Bytes());
  Settle(talker, kWeb);
  talker.Send(longer.Bytes().substr(0, 100));
  EXPECT_THAT(Stop(),
              testing::AllOf(HasSubstr("left 1 messages unread"), HasSubstr("100 bytes from it are not routed")));
}

}  // namespace
}  // namespace zor::test
