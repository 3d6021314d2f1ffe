// Clients that do not read, and clients that end with something unread or unsaid.
#include <sys/socket.h>
#include <zor/control_wire.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <set>

#include "msgsvr_fixture.h"
#include "programs/json.h"
#include "programs/limits.h"

namespace zor::test {
namespace {

const std::string kKilobyte(1000, 'x');
constexpr uint32_t kEvent = 0x2DA05;

class SlowReaderTest : public OwnMsgsvrTest {
 protected:
  // Sends numbered messages to a client that does not read until some are refused, and returns the numbers of those.
  std::set<uint32_t> SendUntilRefused(const WireClient &sender, const std::string &to) {
    std::set<uint32_t> refused;
    // Short ones fill the room that a long one leaves.
    for (const std::string &body : {kKilobyte, std::string()}) {
      const size_t before = refused.size();
      for (; refused.size() == before && sent_ < 10000; ++sent_) {
        sender.Send(MakeMessage(kType, "", to, sent_, body, sent_ + 1));
        if (sent_ % 50 == 49) CollectNotices(sender, refused);
      }
      CollectNotices(sender, refused);
    }
    return refused;
  }
  // All notices to the client until now.
  static void CollectNotices(const WireClient &client, std::set<uint32_t> &refused) {
    client.Send(MakeCount("nobody"));
    for (Message message; message = client.Next(), IsNotice(message, kType);) {
      refused.insert(message.header.sequence - 1);
    }
  }
  size_t CountInLog(const std::string &text) {
    const std::string log = log_.Text();
    size_t count = 0;
    for (size_t at = 0; (at = log.find(text, at)) != log.npos; at += text.size()) ++count;
    return count;
  }

  uint32_t sent_ = 0;
};

TEST_F(SlowReaderTest, RefusesWhatDoesNotFitAndGoesOnWhenTheReaderReads) {
  Start("queue_bytes = 100000\nstop_seconds = 1\n");
  const auto start = std::chrono::steady_clock::now();
  std::set<uint32_t> refused = SendUntilRefused(sender_, "receiver");
  ASSERT_FALSE(refused.empty());
  const std::string path = MakeFile();
  EXPECT_TRUE(IsNotice(sender_.Ask(MakeFileMessage(kType, "receiver", path)), kType));
  EXPECT_FALSE(Exists(path));
  EXPECT_TRUE(LogHolds("receiver (pid " + std::to_string(::getpid()) + ") does not read"));
  // Everything arrives once and in order, or has been refused.
  uint32_t expected = 0;
  const uint32_t first = sent_;
  while (expected < first) {
    if (refused.contains(expected)) {
      ++expected;
    } else {
      ASSERT_EQ(receiver_.Next().header.data, expected++);
    }
  }
  EXPECT_TRUE(LogHolds("reads again: " + std::to_string(refused.size() + 1) + " messages to it were refused"));
  sender_.Send(MakeMessage(kType, "", "receiver", 77));
  EXPECT_EQ(receiver_.Next().header.data, 77u);
  // A second time is counted, but not told again so soon, unless this took too long.
  SendUntilRefused(sender_, "receiver");
  const bool isSoon =
      std::chrono::steady_clock::now() - start < std::chrono::milliseconds(limits::msgsvr::kRefusalPauseMs);
  EXPECT_TRUE(CountInLog("does not read") == 1 || !isSoon) << log_.Text();
  const WireClient tool = Client("tool");
  const Message list = AskAndFetch(tool, MakeRequest(ZOR_MSG_CONTROL_LIST));
  EXPECT_NE(list.body.find("\"refused\":"), list.body.npos);
}

// It would be taken for the start of the next message.
TEST_F(SlowReaderTest, DropsADescriptorWhoseMessageWasRefused) {
  Start("queue_bytes = 100000\n");
  std::set<uint32_t> refused = SendUntilRefused(sender_, "receiver");
  ASSERT_FALSE(refused.empty());
  sender_.Send(MakeMessage(kType, "", "receiver", 77, kKilobyte, sent_ + 1));
  sender_.SendDescriptor(STDIN_FILENO);
  CollectNotices(sender_, refused);
  ASSERT_TRUE(refused.contains(sent_));
  for (size_t taken = sent_ + 1 - refused.size(); taken > 0; --taken) receiver_.Next();
  sender_.Send(MakeMessage(kType, "", "receiver", 78));
  EXPECT_EQ(receiver_.Next().header.data, 78u);
  EXPECT_TRUE(LogHolds("sender (pid " + std::to_string(::getpid()) + "): descriptor dropped"));
}

TEST_F(SlowReaderTest, TellsASubscriberThatAsksForItWhatItMissed) {
  Start("queue_bytes = 100000\n");
  EXPECT_EQ(receiver_.Ask(MakeRequest(ZOR_MSG_CONTROL_GAPS, "", 1)).header.data, ZOR_CONTROL_OK);
  EXPECT_EQ(receiver_.Ask(MakeRequest(ZOR_MSG_CONTROL_GAPS, "", 2)).header.data, ZOR_CONTROL_MALFORMED);
  Tell(receiver_, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", kEvent - 5));
  constexpr uint32_t kEvents = 1000;
  for (uint32_t i = 0; i < kEvents; ++i) {
    sender_.Send(MakeMessage(kEvent + i % 2, "", "", i, kKilobyte));
    if (i % 50 == 49) Tell(sender_, MakeRequest(ZOR_MSG_SEND_FAILED_NOTICE));
  }
  // The next event has room again once the queue is read.
  uint32_t got = 0;
  std::map<uint32_t, uint32_t> missed;
  uint32_t last = 0;
  for (uint32_t i = kEvents; missed.empty(); ++i) {
    Tell(sender_, MakeMessage(kEvent, "", "", i));
    while (!receiver_.NothingArrived()) {
      const Message message = receiver_.Next();
      if (message.header.type != ZOR_MSG_CONTROL_GAP) {
        last = message.header.data;
        ++got;
        continue;
      }
      ZOR_CONTROL_GAP gap;
      message.body.copy(reinterpret_cast<char *>(&gap), sizeof gap);
      EXPECT_GT(gap.sinceUs, 0u);
      ASSERT_EQ(message.body.size(), sizeof gap + gap.types * sizeof(ZOR_CONTROL_GAP_TYPE));
      uint32_t sum = 0;
      for (uint32_t type = 0; type < gap.types; ++type) {
        ZOR_CONTROL_GAP_TYPE entry;
        message.body.copy(reinterpret_cast<char *>(&entry), sizeof entry, sizeof gap + type * sizeof entry);
        missed[entry.type] += entry.events;
        sum += entry.events;
      }
      EXPECT_EQ(sum, gap.events);
      const Message next = receiver_.Next();
      EXPECT_EQ(next.header.data, got + sum) << "the gap is where it is said to be";
      last = next.header.data;
      ++got;
    }
  }
  EXPECT_EQ(missed.size(), 2u);
  EXPECT_EQ(got + missed[kEvent] + missed[kEvent + 1], last + 1);
}

TEST_F(SlowReaderTest, DelaysNoPublisherForAStoppedSubscriber) {
  Start("queue_bytes = 1000000\n");
  Tell(receiver_, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", kEvent));
  // Past the half of its queue.
  for (int i = 0; i < 800; ++i) sender_.Send(MakeMessage(kEvent, "", "", 0, kKilobyte));
  Tell(sender_, MakeRequest(ZOR_MSG_SEND_FAILED_NOTICE));
  constexpr int kEvents = 100;
  int delayed = 0;
  for (int i = 0; i < kEvents; ++i) {
    const auto start = std::chrono::steady_clock::now();
    Tell(sender_, MakeMessage(kEvent, "", ""));
    if (std::chrono::steady_clock::now() - start > limits::msgsvr::kReaderStall) ++delayed;
  }
  EXPECT_LT(delayed, kEvents / 2) << "no pause for each of them";
}

TEST_F(SlowReaderTest, RoutesTheLastWordsOfADaemonThatHasGone) {
  Start();
  for (int round = 0; round < 20; ++round) {
    {
      const WireClient leaver = Client("leaver");
      server_->Signal(SIGSTOP);
      sender_.Send(MakeMessage(kType, "", "leaver"));  // fails while its words are still unread
      for (uint32_t i = 0; i < 10; ++i) leaver.Send(MakeMessage(kType + 1, "", "receiver", i));
    }
    server_->Signal(SIGCONT);
    for (uint32_t i = 0; i < 10; ++i) ASSERT_EQ(receiver_.Next().header.data, i);
    EXPECT_TRUE(IsNotice(sender_.Next(), kType));
  }
}

TEST_F(SlowReaderTest, TellsTheSendersWhatAKilledReceiverHadNotRead) {
  Start();
  const std::string path = MakeFile();
  {
    const WireClient dying = Client("dying");
    // What was read before is no loss.
    for (uint32_t i = 0; i < 50; ++i) {
      sender_.Send(MakeMessage(kType, "", "dying", 0, "", 1000 + i));
      dying.Next();
    }
    for (uint32_t i = 0; i < 100; ++i) sender_.Send(MakeMessage(kType, "", "dying", 0, "", 1 + i));
    Tell(sender_, MakeFileMessage(kType, "dying", path));
    EXPECT_TRUE(Exists(path));
  }
  std::set<uint32_t> lost;
  while (!lost.contains(0)) {  // the last of them, that with the file
    const Message notice = sender_.Next();
    ASSERT_TRUE(IsNotice(notice, kType));
    lost.insert(notice.header.sequence);
  }
  EXPECT_EQ(std::count_if(lost.begin(), lost.end(), [](uint32_t number) { return number <= 100; }), 101);
  // The kernel is asked now and then only, so a few that had been read may be among them.
  EXPECT_LE(lost.size(), 101u + 8);
  EXPECT_FALSE(Exists(path));
  EXPECT_TRUE(LogHolds("dying (pid " + std::to_string(::getpid()) + ") has ended: at most " +
                       std::to_string(lost.size()) + " messages to it unread"));
  const WireClient leaver = Client("leaver");
  Tell(sender_, MakeMessage(kType, "", "leaver"));
  ::shutdown(leaver.fd(), SHUT_RDWR);
  EXPECT_TRUE(IsNotice(sender_.Next(), kType)) << "it lives, but reads no more";
}

TEST_F(SlowReaderTest, RemovesOldFilesThatBelongToNobodyAndNoOthers) {
  // By this process's clock, which need not be the file system's.
  const auto age = [&](const std::string &path, int hours = 2) {
    std::filesystem::last_write_time(RealPath(path),
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(hours));
    return path;
  };
  std::filesystem::create_directories(RealPath(ZOR_PATH_MSG_FILE_DIR));
  const std::string before = age(MakeFile("content", "msg_file_2"));
  const std::string fresh = age(MakeFile("content", "msg_file_3"), 0);
  const std::string foreign = age(MakeFile("content", "other"));
  Start();
  EXPECT_TRUE(LogHolds("1 body files that were left behind removed, 7 bytes"));
  EXPECT_FALSE(Exists(before));
  const std::string waiting = MakeFile("content", "msg_file_4");
  Tell(sender_, MakeFileMessage(kType, "receiver", waiting));
  const std::string read = MakeFile("content", "msg_file_5");
  const WireClient reader = Client("reader");
  Tell(sender_, MakeFileMessage(kType, "reader", read));
  reader.Next();  // but has not opened the file yet
  for (const std::string &path : {before, waiting, read})
    age(path == before ? MakeFile("content", "msg_file_2") : path);
  {
    const WireClient dying = Client("dying");
    Tell(sender_, MakeMessage(kType, "", "dying"));
  }
  EXPECT_TRUE(WaitUntil([&] { return !Exists(before); }));
  for (const std::string &path : {fresh, foreign, waiting, read}) EXPECT_TRUE(Exists(path)) << path;
}

TEST_F(SlowReaderTest, DeliversWhatIsQueuedBeforeItStops) {
  constexpr uint32_t kMessages = 900;  // more than a socket takes
  const auto stopFull = [&](const std::string &settings) {
    Start(settings);
    for (uint32_t i = 0; i < kMessages; ++i) sender_.Send(MakeMessage(kType, "", "receiver", i, kKilobyte));
    Tell(sender_, MakeRequest(ZOR_MSG_SEND_FAILED_NOTICE));
    server_->Signal(SIGTERM);
  };
  stopFull("stop_seconds = 60\n");
  for (uint32_t i = 0; i < kMessages; ++i) ASSERT_EQ(receiver_.Next().header.data, i);
  EXPECT_EQ(server_->Wait(), 0);
  EXPECT_EQ(CountInLog("unread"), 0u);
  // What cannot be delivered in time is named; a second signal hurries it.
  stopFull("stop_seconds = 60\n");
  EXPECT_TRUE(WaitUntil([&] {
    server_->Signal(SIGTERM);
    return server_->Wait(std::chrono::milliseconds(10)) == 0;
  }));
  EXPECT_TRUE(LogHolds("receiver (pid " + std::to_string(::getpid()) + ") has ended: "));
  // Without one its time is over at last, whatever else has a timer.
  stopFull("stop_seconds = 2\n");
  EXPECT_EQ(server_->Wait(), 0);
  EXPECT_EQ(CountInLog(") has ended: "), 2u);
  server_.reset();
}

}  // namespace
}  // namespace zor::test
