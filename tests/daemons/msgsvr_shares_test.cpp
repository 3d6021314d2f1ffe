// Clients that take more than their share of memory, connections or turns, and the others beside them.
#include <sys/resource.h>
#include <zor/control_wire.h>

#include <algorithm>
#include <vector>

#include "msgsvr_fixture.h"
#include "programs/json.h"

namespace zor::test {
namespace {

const std::string kKilobyte(1000, 'x');

class SharesTest : public OwnMsgsvrTest {
 protected:
  // A member of the list that the server gives of itself and its clients.
  double InList(const WireClient &client, const char *name, const std::string &of) const {
    const daemon::Json list(cJSON_Parse(AskAndFetch(client, MakeRequest(ZOR_MSG_CONTROL_LIST)).body.c_str()));
    if (of == "server") return cJSON_GetObjectItem(cJSON_GetObjectItem(list.get(), "server"), name)->valuedouble;
    const cJSON *entry;
    cJSON_ArrayForEach(entry, cJSON_GetObjectItem(list.get(), "clients")) {
      if (cJSON_GetObjectItem(entry, "name")->valuestring == of) return cJSON_GetObjectItem(entry, name)->valuedouble;
    }
    return -1;
  }
  void ExpectService() {
    sender_.Send(MakeMessage(kType, "", "receiver", 7));
    EXPECT_EQ(receiver_.Next().header.data, 7u);
  }
};

TEST_F(SharesTest, KeepsMemoryForEachOfManyThatDoNotRead) {
  Start("user_bytes = 400000\nmemory_bytes = 400000\nqueue_bytes = 100000\n");
  std::vector<WireClient> frozen;
  const WireClient flooder = Client("flooder");
  for (int i = 0; i < 12; ++i) {
    const std::string name = "frozen" + std::to_string(i);
    frozen.push_back(Client(name));
    // Its notices are read, since they are charged too.
    for (int burst = 0; burst < 8; ++burst) {
      for (int k = 0; k < 50; ++k) flooder.Send(MakeMessage(kType, "", name, 0, kKilobyte));
      flooder.Send(MakeCount("nobody"));
      while (flooder.Next().header.type != ZOR_MSG_GET_PROCESS_NUM) {
      }
    }
  }
  EXPECT_LE(InList(sender_, "held", "server"), 400000);
  EXPECT_GT(InList(sender_, "held", "frozen0"), 90000) << "the first gets what it may have";
  EXPECT_GT(InList(sender_, "held", "frozen11"), 2000) << "something is left for the last";
  EXPECT_TRUE(LogHolds("does not read: its share of the memory is used up, messages to it are refused"));
  ExpectService();
  // What they have read is given back.
  frozen.clear();
  EXPECT_TRUE(WaitUntil([&] { return InList(sender_, "held", "server") < 200000; }));
}

TEST_F(SharesTest, SurvivesHavingNoMemory) {
  Start("queue_bytes = 33554432\nuser_bytes = 134217728\nmemory_bytes = 134217728\n");
  rlimit limit = {};
  ASSERT_EQ(::prlimit(server_->pid(), RLIMIT_AS, nullptr, &limit), 0);
  const rlim_t before = limit.rlim_cur;
  rlim_t pages = 0;
  std::ifstream("/proc/" + std::to_string(server_->pid()) + "/statm") >> pages;
  const rlim_t mapped = pages * static_cast<rlim_t>(::getpagesize());
  if (mapped > rlim_t{1} << 30) GTEST_SKIP() << "a sanitizer does not go on without memory";
  limit.rlim_cur = mapped + (256 << 10);
  ASSERT_EQ(::prlimit(server_->pid(), RLIMIT_AS, &limit, nullptr), 0);
  const WireClient frozen = Client("frozen");
  uint32_t refused = 0;
  for (uint32_t i = 0; i < 120'000 && refused == 0; ++i) {
    sender_.Send(MakeMessage(kType, "", "frozen", 0, kKilobyte));
    if (i % 50 != 49) continue;
    sender_.Send(MakeCount("nobody"));
    while (IsNotice(sender_.Next(), kType)) ++refused;
  }
  EXPECT_GT(refused, 0u);
  limit.rlim_cur = before;
  ASSERT_EQ(::prlimit(server_->pid(), RLIMIT_AS, &limit, nullptr), 0);
  ExpectService();
  AwaitCount(sender_, "frozen", 1);
}

TEST_F(SharesTest, AdmitsOthersWhileOneProcessOpensConnectionAfterConnection) {
  Start("user_clients = 30\nmax_clients = 40\nregister_seconds = 3600\n");
  Child hoarder = Child::Function([&] {
    std::vector<WireClient> held;
    for (int i = 0; i < 33; ++i) {
      held.push_back(Connect());
      if (i % 2 == 0) held.back().Send(MakeMessage(ZOR_MSG_REGISTER_APP, "hoarder", ""));
    }
    return ::pause();
  });
  EXPECT_TRUE(LogHolds("connection refused: user "));
  for (int i = 0; i < 5; ++i) {
    const WireClient honest = Client("honest");
    honest.Send(MakeMessage(kType, "", "receiver", 3));
    EXPECT_EQ(receiver_.Next().header.data, 3u);
  }
  EXPECT_TRUE(LogHolds("cut off: its process has the most connections, and there is no room for another's"));
}

TEST_F(SharesTest, PassesDescriptorsBesideOnesThatStayUnread) {
  Start();
  std::vector<WireClient> frozen;
  const WireClient hoarder = Client("hoarder");
  const auto send = [](const WireClient &from, const std::string &to) {
    from.Send(MakeMessage(kType, "", to));
    from.SendDescriptor(STDIN_FILENO);
  };
  for (int i = 0; i < 6; ++i) {
    frozen.push_back(Client("frozen" + std::to_string(i)));
    for (int k = 0; k < 20; ++k) send(hoarder, "frozen" + std::to_string(i));
  }
  // A reader that is never seen to have read everything gets each of its own.
  for (int i = 0; i < 100; ++i) {
    send(sender_, "receiver");
    send(sender_, "receiver");
    for (int k = 0; k < (i == 0 ? 1 : 2); ++k) {
      receiver_.Next();
      const int descriptor = receiver_.ReceiveDescriptor();
      ASSERT_GE(descriptor, 0) << i;
      ::close(descriptor);
    }
  }
  size_t passed = 0;
  for (const WireClient &reader : frozen) {
    for (int k = 0; k < 20; ++k) {
      reader.Next();
      if (reader.NothingArrived()) break;
      const int descriptor = reader.ReceiveDescriptor();
      if (descriptor < 0) break;
      ::close(descriptor);
      ++passed;
    }
  }
  EXPECT_EQ(passed, 64u) << "as many as one sender may have unread";
  EXPECT_TRUE(LogHolds("descriptor to it dropped: too many unread"));
}

TEST_F(SharesTest, RoutesOthersBetweenTheMessagesOfAFlooder) {
  Start();
  const WireClient flooder = Client("flooder");
  const auto stop = [&] {
    server_->Signal(SIGSTOP);
    ASSERT_TRUE(WaitUntil([&] {
      std::ifstream status("/proc/" + std::to_string(server_->pid()) + "/stat");
      std::string text;
      std::getline(status, text);
      return text.find(") T ") != text.npos;
    }));
  };
  stop();
  constexpr uint32_t kFlood = 1500;
  std::string flood;
  for (uint32_t i = 0; i < kFlood; ++i) flood += MakeMessage(kType, "", "receiver", i).Bytes();
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  flooder.Send(flood);
  flooder.SendDescriptor(ends[1]);
  sender_.Send(MakeMessage(kType + 1, "", "receiver"));
  server_->Signal(SIGCONT);
  uint32_t before = 0;
  for (uint32_t i = 0; i < kFlood;) {
    const Message message = receiver_.Next();
    if (message.header.type == kType + 1) {
      before = i;
    } else {
      ASSERT_EQ(message.header.data, i++);
    }
  }
  EXPECT_LE(before, kFlood / 2) << "it does not wait for all that was there before";
  const int passed = receiver_.ReceiveDescriptor();
  EXPECT_GE(passed, 0) << "the descriptor arrives behind the last message";
  for (const int fd : {ends[0], ends[1], passed}) ::close(fd);
}

}  // namespace
}  // namespace zor::test
