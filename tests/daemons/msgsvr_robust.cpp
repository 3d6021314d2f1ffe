// Hostile, broken and stopped clients.
#include <sys/socket.h>

#include <filesystem>
#include <random>

#include "msgsvr_fixture.h"

namespace zor::test {
namespace {

// Fills the socket and the server's queue of a client that does not read, until the server has ended it.
void FloodUntilGone(const WireClient &sender, const std::string &destination) {
  const Message message = MakeMessage(kType, "", destination, 0, std::string(1000, 'x'));
  for (;;) {
    for (int i = 0; i < 50; ++i) sender.Send(message);
    const Message probe = MakeMessage(ZOR_MSG_GET_PROCESS_NUM, "", "", 0, NameBody(destination));
    sender.Send(probe);
    Message answer;
    do answer = sender.Next();
    while (IsNotice(answer, kType));
    if (answer.header.type != ZOR_MSG_GET_PROCESS_NUM || answer.header.data == 0) return;
  }
}

// A few frames with known types and small lengths but random content, and random bytes behind them.
std::string Garbage(std::mt19937 &random) {
  constexpr uint32_t kTypes[] = {0x701, 0x702, 0x703, 0x705,  0x706,  0x708,
                                 0x109, 0x10A, 0x10D, 0x5018, 0x5019, 0x2DA05};
  const auto word = [&](uint32_t below) { return static_cast<uint32_t>(random()) % below; };
  std::string bytes;
  for (uint32_t frames = word(10); frames > 0; --frames) {
    std::string body(word(300), '\0');
    for (char &byte : body) byte = static_cast<char>(word(256));
    const uint32_t type = kTypes[word(std::size(kTypes))] | (word(8) == 0 ? ZOR_MSG_BODY_IN_FILE : 0);
    bytes += MakeMessage(type, "fuzz", word(2) == 0 ? "" : "asker", word(0x30000), body).Bytes();
  }
  for (uint32_t rest = word(1000); rest > 0; --rest) bytes += static_cast<char>(word(256));
  return bytes;
}

TEST_F(MsgsvrTest, EndsAClientWithAMalformedFrameAndNobodyElse) {
  Start();
  const WireClient honest = Client("honest");
  Message oversized = MakeMessage(kType, "", "honest");
  Message endless = MakeMessage(kType, "", "twelve_chars");
  for (const uint32_t length : {2049u, 0x200001u, 0x8000001u, 0xffffffffu}) {
    const WireClient client = Client("bad");
    oversized.header.bodyLength = length;
    client.Send(oversized);
    EXPECT_TRUE(client.ClosedByOther()) << length;
  }
  const WireClient client = Client("bad");
  client.Send(endless);
  EXPECT_TRUE(client.ClosedByOther());
  honest.Send(MakeMessage(kType, "", "honest", 0, std::string(2048, 'x')));
  EXPECT_EQ(honest.Next().body.size(), 2048u);
}

TEST_F(MsgsvrTest, CutsOffAReaderThatHasStoppedAndSaysWhatItLost) {
  StartOwn("queue_bytes = 100000\n");
  if (IsSkipped()) return;
  const WireClient stopped = Client("stopped");
  const WireClient sender = Client("sender");
  const WireClient others[] = {Client("one"), Client("two")};
  Child traffic = Child::Function([&] {
    for (int i = 0; i < 2000; ++i) {
      others[0].Send(MakeMessage(kType, "", "two"));
      if (!others[1].ReceiveMessage()) return 1;
    }
    return 0;
  });
  // More than the socket takes, so that the file waits in the queue.
  for (int i = 0; i < 300; ++i) sender.Send(MakeMessage(kType, "", "stopped", 0, std::string(1000, 'x')));
  const std::string path = MakeMessageFile("msg_file_1", "content");
  sender.Send(MakeFileMessage(kType, "stopped", path));
  FloodUntilGone(sender, "stopped");
  EXPECT_FALSE(std::filesystem::exists(RealPath(path)));
  EXPECT_EQ(traffic.Wait(), 0) << "others go on meanwhile";
  EXPECT_TRUE(LogHolds("msgsvr: stopped (pid " + std::to_string(::getpid()) + ") cut off: its output queue is full, "));
  EXPECT_TRUE(LogHolds(" messages lost\n"));
}

TEST_F(MsgsvrTest, CutsOffAClientThatHasMoreToSayButDoesNotRead) {
  StartOwn("queue_bytes = 20000\n");
  if (IsSkipped()) return;
  const WireClient sink = Client("sink");
  const WireClient deaf = Client("deaf");
  const WireClient sender = Client("sender");
  Child reader = Child::Function([&] {
    while (sink.ReceiveMessage(std::chrono::seconds(1))) continue;
    return 0;
  });
  Child talker = Child::Function([&] {
    std::string stream;
    for (int i = 0; i < 200; ++i) stream += MakeMessage(kType, "", "sink", 0, std::string(1000, 'x')).Bytes();
    while (::send(deaf.fd(), stream.data(), stream.size(), MSG_NOSIGNAL) > 0) continue;
    return 0;
  });
  FloodUntilGone(sender, "deaf");
  EXPECT_EQ(talker.Wait(), 0);
  Settle(sender);
}

TEST_F(MsgsvrTest, SurvivesGarbageWhileHonestDaemonsTalk) {
  Start();
  const WireClient asker = Client("asker");
  const WireClient answerer = Client("answerer");
  std::mt19937 random(12345);
  for (int round = 0; round < 300; ++round) {
    const WireClient client = Connect();
    if (round % 3 != 0) client.Register("fuzz");
    client.Send(Garbage(random));
    asker.Send(MakeMessage(kType, "", "answerer", static_cast<uint32_t>(round)));
    const Message request = answerer.Next();
    ASSERT_EQ(request.header.data, static_cast<uint32_t>(round));
    answerer.Send(MakeMessage(kType + 1, "", "asker", static_cast<uint32_t>(round)));
    Message reply;
    do reply = asker.Next();
    while (reply.header.type != kType + 1 && reply.header.type != 0);
    ASSERT_EQ(reply.header.data, static_cast<uint32_t>(round));
  }
}

TEST_F(MsgsvrTest, TurnsAwayClientsBeyondItsLimit) {
  StartOwn("max_clients = 2\n");
  if (IsSkipped()) return;
  WireClient first = Client("first");
  const WireClient second = Client("second");
  EXPECT_TRUE(Connect().ClosedByOther());
  first.Close();
  EXPECT_TRUE(WaitUntil([&] {
    const WireClient third = Connect();
    third.Send(MakeMessage(ZOR_MSG_REGISTER_APP, "third", ""));
    return third.ReceiveMessage().has_value();
  }));
}

TEST_F(MsgsvrTest, SaysWhichDaemonHasStoppedReporting) {
  StartOwn("report.stuck = 1\n");
  if (IsSkipped()) return;
  const WireClient stuck = Client("stuck");
  const WireClient quiet = Client("quiet");
  EXPECT_TRUE(LogHolds("stuck (pid " + std::to_string(::getpid()) + "): no report for 3 periods of 1 s"));
  EXPECT_EQ(LogText().find("quiet"), std::string::npos);
}

}  // namespace
}  // namespace zor::test
