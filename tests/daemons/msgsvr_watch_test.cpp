// What the message server names in its log about the traffic: daemons that wait for each other, and storms.
#include <zor/dmmsg.h>

#include <sstream>

#include "msgsvr/unread.h"
#include "msgsvr_fixture.h"

namespace zor::test {
namespace {

class MsgsvrWatchTest : public OwnMsgsvrTest {
 protected:
  // Sends a message to the other, which reads it.
  static void Pass(const WireClient &from, const WireClient &to, const std::string &name, uint32_t type) {
    from.Send(MakeMessage(type, "", name, 0, "", 7));
    EXPECT_EQ(to.Next().header.type, type);
  }
  // The lines of the log so far that hold the text.
  std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream log(log_.Text());
    for (std::string line; std::getline(log, line);) {
      if (line.find(text) != std::string::npos) lines.push_back(line);
    }
    return lines;
  }
};

TEST_F(MsgsvrWatchTest, NamesACircleOfRequestsOnceEachTimeItCloses) {
  Start("deadlock_seconds = 1\nstorm_rate = 0\n");
  const WireClient told = Client("told"), teller = Client("teller"), deaf = Client("deaf"), asker = Client("asker");
  const WireClient a = Client("a"), b = Client("b"), c = Client("c");
  Pass(told, teller, "teller", 0x4B05);  // types that are known to be one-way
  Pass(teller, told, "told", 0x4B06);
  Pass(deaf, asker, "asker", 0x4101);
  asker.Send(MakeMessage(0x4102, "", "deaf", 0, "", 7));  // which does not read it, and so does not wait
  Pass(sender_, receiver_, "receiver", 0x4103);           // which waits for nobody
  Pass(a, b, "b", 0x4001);
  Pass(b, c, "c", 0x4002);
  Pass(c, a, "a", ZOR_MSG_DM);  // known to be a request
  ASSERT_TRUE(
      LogHolds("a waits for b (0x4001), which waits for c (0x4002), which waits for a (0x209): a cycle, "
               "blocked for "));
  // It dissolves, and closes again.
  Pass(b, a, "a", 0x4001);
  Pass(a, b, "b", 0x4004);
  Pass(b, c, "c", 0x4002);
  ASSERT_TRUE(LogHolds("a waits for b (0x4004), which waits for c (0x4002), which waits for a (0x209): a cycle, "));
  const auto lines = Lines("cycle");
  EXPECT_NE(lines.front().find("; assuming that 0x4001 and 0x4002 are requests"), std::string::npos) << lines.front();
  const bool kernelTells = msgsvr::UnreadBytes().Of(deaf.fd()).has_value();
  EXPECT_EQ(lines.size(), kernelTells ? 2u : 3u) << log_.Text();
  deaf.Next();  // from here on it reads: no message shows that
  EXPECT_TRUE(LogHolds("deaf waits for asker (0x4101), which waits for deaf (0x4102): a cycle"));
}

TEST_F(MsgsvrWatchTest, NamesTwoDaemonsThatKeepEachOtherBusy) {
  Start("deadlock_seconds = 0\nstorm_rate = 5\nstorm_seconds = 1\n");
  const WireClient third = Client("third");
  const auto storm = [&](uint32_t there, uint32_t back, const char *text) {
    for (int i = 0; i < 100 && Lines(text).empty(); ++i) {
      Pass(sender_, receiver_, "receiver", there);
      Pass(receiver_, sender_, "sender", back);
      Pass(third, receiver_, "receiver", there);  // one way only
      for (uint32_t other = 0; other < 3; ++other) Pass(sender_, third, "third", 0x4100 + other);
    }
    return !Lines(text).empty();
  };
  ASSERT_TRUE(WaitUntil([&] { return storm(0x4001, 0x4002, "sends 0x4001"); }));
  ASSERT_TRUE(WaitUntil([&] { return storm(0x4003, 0x4003, "sends 0x4003"); })) << "a request and its replies";
  const auto lines = Lines("a storm for ");
  EXPECT_EQ(lines.size(), 2u) << log_.Text();
  const std::string expected[] = {"sender (pid N) sends 0x4001 to receiver (pid N) ",
                                  "receiver (pid N) sends 0x4002 to sender (pid N) "};
  for (std::string text : expected) {
    while (text.find("pid N") != text.npos) text.replace(text.find("pid N"), 5, "pid " + std::to_string(::getpid()));
    EXPECT_NE(lines.front().find(text), std::string::npos) << lines.front();
  }
  EXPECT_EQ(Lines("third").size(), 0u);
}

}  // namespace
}  // namespace zor::test
