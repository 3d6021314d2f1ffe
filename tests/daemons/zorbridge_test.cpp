// What the bridge sends: events, log records, presence and status, through outages of everything.
#include <zor/log.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

#include "daemons/zorbridge_fixture.h"

namespace zor::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr uint32_t kNetwork = 0x2DA07;
constexpr uint32_t kFeed = 0x2DA09;
constexpr char kCounted[] = "zor/gw7/event/network/Counted";

class Zorbridge : public ZorbridgeTest {
 protected:
  // The events that the subscriber has got: each number once, in their order, from the first to the last. Earlier ones
  // may come again: the broker had shown but not acknowledged them when it was killed.
  void ExpectEvents(int first, int last) {
    const std::string end = "\"n\":" + std::to_string(last) + "}}}\n";
    ASSERT_TRUE(Shown(end)) << errors_.Text() << broker_.log();
    std::set<std::pair<std::string, uint64_t>> known;
    std::vector<int> numbers, expected;
    for (const auto &[topic, record] : Received(kCounted)) {
      const uint64_t number = record["number"];
      if (!known.emplace(record["stream"], number).second) continue;
      if (const int event = record["event"]["Payload"]["n"]; event >= first) numbers.push_back(event);
    }
    for (int number = first; number <= last; ++number) expected.push_back(number);
    EXPECT_EQ(numbers, expected);
  }
  // Waits until the queue has it on disk: the bridge has taken what was published before it, too.
  bool IsWritten(const std::string &text) {
    return WaitUntil([&] {
      std::ifstream file(root_.Path("/var/lib/zor-bridge/queue.db-wal"), std::ios::binary);
      const std::string bytes = {std::istreambuf_iterator<char>(file), {}};
      return bytes.find(text) != bytes.npos;
    });
  }
};

TEST_F(Zorbridge, PublishesByModuleAndNameWithNumbersInTheirOrder) {
  StartBridge("event.feed = off\nevent.device = drop\n");
  const Publisher publisher(root_);
  publisher.Event(1);
  publisher.Event(2, "Unwanted", kFeed);
  publisher.Publish(kNetwork, "{\"EventType\":\"a/b+c#%\\u0001\xc3\xa4\xff\"}");
  publisher.Event(4, "");
  publisher.Event(5, std::string(300, 'x'));
  publisher.Publish(0x2DA10, "no JSON");
  publisher.Publish(kNetwork, R"({"EventType":"Whole","b":1,"a":9007199254740993})");
  ASSERT_TRUE(Shown("9007199254740993"));
  std::vector<std::string> topics;
  uint64_t number = 0;
  for (const auto &[topic, record] : Received("zor/gw7/event/")) {
    topics.push_back(topic.substr(14));
    EXPECT_EQ(record["schema"], 1);
    EXPECT_EQ(record["gateway"], "gw7");
    EXPECT_EQ(record["number"], ++number);
    EXPECT_EQ(record["stream"].get<std::string>().size(), 16u);
  }
  EXPECT_THAT(topics, ElementsAre("network/Counted", "network/a%2Fb%2Bc%23%25%01ä\xEF\xBF\xBD", "network/%",
                                  testing::AllOf(testing::StartsWith("network/xxx"), testing::EndsWith("x%~")),
                                  "0x2DA10/%", "network/Whole"));
  EXPECT_THAT(subscriber_->output(), HasSubstr(R"("event":{"EventType":"Whole","b":1,"a":9007199254740993}})"));
  EXPECT_THAT(subscriber_->output(), Not(HasSubstr("Unwanted")));
}

TEST_F(Zorbridge, ComesAndGoesWithAWordToTheBroker) {
  StartBridge("status_seconds = 1\n");
  Json status;  // the server may be too busy for the first of them
  for (int tries = 0; tries < 30 && (status.is_null() || !status["unwell"].empty()); ++tries) {
    ASSERT_TRUE(Shown("zor/gw7/status {\"schema\":1"));
    ASSERT_TRUE(Shown("\n"));
    status = Received("zor/gw7/status").back().second;
  }
  EXPECT_THAT(status["unwell"], testing::IsEmpty());
  EXPECT_EQ(status["bus"]["server"]["name"], "msgsvr");
  EXPECT_EQ(status["bus"]["daemons"][0]["name"], "bridge");
  EXPECT_EQ(status["line"]["connects"], 1);
  EXPECT_EQ(Stop(SIGTERM), 0) << errors_.Text();
  EXPECT_TRUE(Shown("\"online\":false"));
  EXPECT_TRUE(Shown("\"reason\":\"stopped\"}\n"));
  StartBridge();
  Stop(SIGKILL);
  EXPECT_TRUE(Shown("\"reason\":\"lost\"}\n"));
  Subscribe();
  EXPECT_TRUE(Shown("\"reason\":\"lost\"}\n")) << "late comers get it too";
}

TEST_F(Zorbridge, KeepsThroughAnOutageWhatIsToBeKept) {
  StartBridge("group_seconds = 1\nevent.feed = latest\nevent.device = drop\n");
  const Publisher publisher(root_);
  publisher.Events(1, 3);
  ASSERT_TRUE(Shown("\"n\":3}"));
  broker_.Stop(SIGKILL);
  publisher.Events(4, 499);
  publisher.Event(1, "Newest", kFeed);
  publisher.Event(2, "Newest", kFeed);
  for (int each = 0; each < 300; ++each) publisher.Event(each, "Latest" + std::to_string(each), kFeed);
  publisher.Event(1, "Lost", 0x2DA01);
  publisher.Event(500);
  ASSERT_TRUE(IsWritten("{\"n\":500}"));
  RestartBroker();
  publisher.Events(501, 502);
  ExpectEvents(4, 502);
  Mark("all");
  ASSERT_EQ(Received("zor/gw7/event/feed/Newest ").size(), 1u);
  EXPECT_EQ(Received("zor/gw7/event/feed/Newest ")[0].second["event"]["Payload"]["n"], 2);
  EXPECT_THAT(subscriber_->output(), HasSubstr("\"online\":true")) << "however many names events have";
  EXPECT_EQ(Received("zor/gw7/event/device/").size(), 0u);
}

TEST_F(Zorbridge, LosesNothingThatHasBeenWrittenWhenItIsKilled) {
  StartBridge("group_seconds = 1\n");
  const Publisher publisher(root_);
  publisher.Events(1, 2);
  ASSERT_TRUE(Shown("\"n\":2}"));
  broker_.Stop(SIGKILL);
  publisher.Events(3, 40);
  ASSERT_TRUE(IsWritten("{\"n\":40}"));
  Stop(SIGKILL);
  Start(Settings());
  publisher.Events(41, 50);
  RestartBroker();
  ExpectEvents(3, 50);
  std::map<std::pair<std::string, uint64_t>, Json> contents;
  for (const auto &[topic, record] : Received(kCounted)) {
    const auto added = contents.emplace(std::pair(record["stream"], record["number"]), record["event"]);
    EXPECT_EQ(added.first->second, record["event"]) << "two records with one number";
  }
}

TEST_F(Zorbridge, GoesOnWithAnotherMessageServer) {
  StartBridge();
  RestartServer();
  const Publisher publisher(root_);
  publisher.Events(1, 5);
  ExpectEvents(1, 5);
}

TEST_F(Zorbridge, TakesEventsOfAnyLength) {
  StartBridge();
  const Publisher publisher(root_);
  for (const size_t length : {size_t{100'000}, size_t{3'000'000}, size_t{8'388'000}}) {
    const std::string path = "/var/run/msg/msg_file_" + std::to_string(length);
    std::ofstream(root_.Path(path)) << Json{{"EventType", "Long"}, {"Payload", std::string(length - 60, 'x')}}.dump();
    std::string field = path;
    field.resize(ZOR_MSG_FILE_PATH_SIZE);
    publisher.Publish(kNetwork | ZOR_MSG_BODY_IN_FILE, field);
  }
  publisher.Event(1);
  ExpectEvents(1, 1);
  const auto records = Received("zor/gw7/event/network/");
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records[0].second["event"]["Payload"].get<std::string>().size(), 99'940u);
  for (size_t each = 0; each < 4; ++each) EXPECT_EQ(records[each].second["number"], each + 1);
}

TEST_F(Zorbridge, PassesOnTheRecordsOfTheLogThatAreWanted) {
  StartBridge("log_level = error\nlog_types = Kernel User\n");
  std::ofstream(root_.Path("/syslogd")) << "copy_to = bridge\n";
  Child syslogd = Child::Program({SYSLOGD_PROGRAM, "--settings", root_.Path("/syslogd")});
  ASSERT_TRUE(syslogd.WaitForOutput("on the bus"));
  ASSERT_EQ(ZOR_MSG_Init("tester"), ZOR_OK);
  ZOR_LOG_API_Record_KLog(ZOR_LOG_KERNEL, ZOR_LOG_WARNING, 0, "too mild");
  ZOR_LOG_API_Record_KLog(ZOR_LOG_SYSTEM, ZOR_LOG_ERROR, 0, "of another type");
  const ZOR_LOG_COPY forged = {0, ZOR_LOG_KERNEL << ZOR_LOG_TYPE_SHIFT | ZOR_LOG_ERROR, 0};
  ZOR_MSG_SendMsgDataWithDataSeq("bridge", ZOR_LOG_MSG_COPY, &forged, sizeof forged, 0, 1);
  ZOR_LOG_API_Record_KLog(ZOR_LOG_KERNEL, ZOR_LOG_ERROR, 0, "wanted");
  ZOR_MSG_Destroy();
  ASSERT_TRUE(Shown("\"text\":\"wanted\"}\n"));
  ASSERT_EQ(Received("zor/gw7/log").size(), 1u);
  const Json record = Received("zor/gw7/log")[0].second;
  EXPECT_EQ(record["number"], 1);
  EXPECT_EQ(record["level"], "error");
  EXPECT_EQ(record["type"], "kernel");
}

TEST_F(Zorbridge, IsAlone) {
  StartBridge();
  EXPECT_EQ(Run(Settings()).Wait(), 4) << "the queue is another one's";
  EXPECT_TRUE(Logged("queue.db"));
  EXPECT_EQ(Run(Settings("queue_file = /var/other/queue.db\n", "gw8")).Wait(), 4);
  EXPECT_TRUE(Logged("another daemon on the bus has the name bridge"));
  const Publisher publisher(root_);
  publisher.Event(1);
  ExpectEvents(1, 1);
}

TEST_F(Zorbridge, SaysThatAnotherGatewayHasItsName) {
  StartBridge();
  Child other = broker_.Client({"mosquitto_sub", "-t", "nothing", "-i", "zor-gw7"});  // comes back each time
  EXPECT_TRUE(Logged("second gateway")) << errors_.Text();
  EXPECT_TRUE(Shown("\"reason\":\"lost\"}\n"));
  other.Signal(SIGKILL);
  EXPECT_TRUE(Shown("\"unwell\":[\"line: it has ended lately: ")) << "the status names it when the line is back";
}

TEST_F(Zorbridge, EndsWithAStatusThatSaysWhy) {
  EXPECT_EQ(Run("gateway = x\n").Wait(), 3);
  EXPECT_EQ(Run("broker = http://127.0.0.1\ngateway = x\n").Wait(), 3);
  EXPECT_EQ(Run("broker = mqtt://127.0.0.1\n").Wait(), 3) << "no name, and no certificate that has one";
  EXPECT_EQ(Run(Settings("call.cms = NONSENSE\n")).Wait(), 3);
  EXPECT_EQ(Run(Settings("event.nonsense = keep\n")).Wait(), 3);
  EXPECT_EQ(Run(Settings("event.lan = sometimes\n", "a/b")).Wait(), 3);
  EXPECT_THAT(errors_.Text(), testing::AllOf(HasSubstr("broker must be set"), HasSubstr("gateway must"),
                                             HasSubstr("NONSENSE"), HasSubstr("nonsense")));
  server_->Signal(SIGKILL);
  server_->Wait();
  EXPECT_EQ(Run(Settings()).Wait(), 1) << "without a message server";
}

}  // namespace
}  // namespace zor::test
