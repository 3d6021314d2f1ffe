// The example that collects a fleet's records: each exactly once, whatever comes and whatever dies.
#include <sys/resource.h>

#include <string>
#include <vector>

#include "broker.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

using Arguments = std::vector<std::string>;

class CollectorTest : public ::testing::Test {
 protected:
  Child Run(const Arguments &arguments) const {
    Arguments all = {"/bin/sh",          "-c",      R"(exec "$@" 2>&1)",    "sh",
                     "/usr/bin/python3", COLLECTOR, root_.Path("/fleet.db")};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return Child::Program(all);
  }
  Child Collect(const std::string &id) const {
    Child child = Run({"--broker", broker_.url(), "--client-id", id, "--batch", "50"});
    EXPECT_TRUE(child.WaitForOutput("subscribed")) << child.output();
    return child;
  }
  std::string Show(const std::string &what) const {
    Child child = Run({what});
    child.WaitForOutput("no such text");
    return child.output();
  }
  bool WaitForReport(const std::string &line) const {
    return WaitUntil([&] { return Show("--report").find(line + '\n') != std::string::npos; }, 4 * kPatience);
  }

  // Publishes a payload as one message, or each line of a file as one.
  void Publish(const std::string &topic, const std::string &payload) const {
    const std::string path = root_.Path("/payload");
    std::ofstream(path) << payload;
    EXPECT_EQ(broker_.Client({"mosquitto_pub", "-q", "1", "-t", topic, "-f", path}).Wait(), 0);
  }
  Child PublishNumbers(const std::string &gateway, int first, int last) const {
    const std::string path = root_.Path("/" + gateway + std::to_string(first));
    std::ofstream file(path);
    for (int number = first; number <= last; ++number) file << Record(gateway, number) << '\n';
    return Child::Program({"/bin/sh", "-c", R"(exec "$@" <)" + path, "sh", BROKER_PREFIX "/usr/bin/mosquitto_pub", "-V",
                           "5", "-p", std::to_string(broker_.port()), "-q", "1", "-l", "-t",
                           "zor/" + gateway + "/event/lan/up"});
  }
  static std::string Record(const std::string &gateway, int number, const std::string &more = {}) {
    return R"({"schema":1,"gateway":")" + gateway + R"(","stream":"0123456789ab0000","number":)" +
           std::to_string(number) + R"(,"time":"2026-01-31T23:59:59.999Z")" + more + '}';
  }

  TempRoot root_;
  // The sessions of collectors outlive the broker, and it drops nothing that waits for them.
  Broker broker_{
      root_.Path(""),
      "allow_anonymous true\nmax_queued_messages 0\npersistence true\npersistence_location " + root_.Path("/") + "\n"};
};

TEST_F(CollectorTest, StoresEachRecordOnceWhenOneOfTwoIsKilledAndSomeComeTwice) {
  constexpr int kNumbers = 1500;
  Child first = Collect("first");
  const Child second = Collect("second");
  std::vector<Child> publishers;
  // One gateway's come twice; the other's once, so that a lost one has no double to hide it.
  for (const char *gateway : {"gw1", "gw1", "gw2"}) publishers.push_back(PublishNumbers(gateway, 1, kNumbers));
  EXPECT_TRUE(WaitUntil([this] { return Show("--report").find("events:               0\n") == std::string::npos; }));
  first.Signal(SIGKILL);
  EXPECT_EQ(first.Wait(), 128 + SIGKILL);
  for (Child &each : publishers) EXPECT_EQ(each.Wait(), 0);
  const Child again = Collect("first");
  EXPECT_TRUE(WaitForReport("events:               3000")) << Show("--report");
  EXPECT_EQ(Show("--holes"), "");
  EXPECT_EQ(Show("--report").find("doubles dropped:      0\n"), std::string::npos);
}

TEST_F(CollectorTest, RejectsWhatIsNoRecordAndShowsHolesAndGaps) {
  struct {
    const char *topic;
    std::string payload;
  } const kMessages[] = {
      {"zor/gw/event/lan/up", Record("gw", 1, R"(,"event":{"a":[1,null]})")},
      {"zor/gw/event/lan/up", Record("gw", 1)},
      {"zor/gw/log", Record("gw", 4, R"(,"text":"\ud800")")},
      {"zor/gw/gap", Record("gw", 5, R"(,"lost":12,"by":{"event/lan":12})")},
      {"zor/gw/event/lan/up", R"({"schema":1,"gateway":"gw","time":"now","event":{}})"},
      {"zor/gw/gap", Record("gw", 6, R"(,"lost":true)")},
      {"zor/gw/log", std::string(256 * 1024, '[')},
      {"zor/gw/log", std::string(1024 * 1024 + 1, ' ')},
      {"zor/gw/log", "\xff"},
      {"zor/gw/log", "[1]"},
      {"zor/gw/log", Record("gw", 7, R"(,"level":NaN)")},
      {"zor/gw/log", Record("gw", 7, R"(,"schema":2)")},
      {"zor/gw/log", Record("gw", 7, R"(,"number":99999999999999999999)")},
      {"zor/gw/log", Record("gw", 7, R"(,"number":"8")")},
      {"zor/gw/log", Record("gw", 7, R"(,"stream":"0123456789AB0000")")},
      {"zor/gw/log", Record("gw", 7, R"(,"time":"\ud800")")},
      {"zor/gw/log", Record("other", 7)},
      {"zor/gw/log", R"({"schema":1,"gateway":"gw","time":"now","stream":"0123456789ab0000"})"},
  };
  const Child collector = Collect("only");
  for (const auto &[topic, payload] : kMessages) Publish(topic, payload);
  Publish("zor/gw/log", Record("gw", 9));
  EXPECT_TRUE(WaitForReport("log records:          2"));
  EXPECT_EQ(Show("--report"), R"(events:               1
log records:          2
gaps:                 1
given up by gateways: 12
without a number:     1
doubles dropped:      1
rejected:             13
gateways:             1
streams:              1
holes:                2, 5 records
  rejected, gateway: not that of the topic: 1
  rejected, lost: not a positive number of 63 bits: 1
  rejected, not JSON: 3
  rejected, not a JSON object: 1
  rejected, number: not a positive number of 63 bits: 3
  rejected, schema: not 1: 1
  rejected, stream: not 16 hexadecimal digits: 1
  rejected, time: not Unicode: 1
  rejected, too long: 1
)");
  EXPECT_EQ(Show("--holes"), "gw 0123456789ab0000 2-3\ngw 0123456789ab0000 6-8\n");
}

TEST_F(CollectorTest, LosesNothingToAFullDiskAndARestartOfTheBroker) {
  Child collector = Collect("only");
  const auto limit = [&](rlim_t bytes) {
    const rlimit files = {bytes, RLIM_INFINITY};
    EXPECT_EQ(::prlimit(collector.pid(), RLIMIT_FSIZE, &files, nullptr), 0);
  };
  limit(16 * 1024);
  EXPECT_EQ(PublishNumbers("gw", 1, 400).Wait(), 0);
  EXPECT_TRUE(collector.WaitForOutput("cannot write: "));
  broker_.Stop();
  broker_.Start();
  EXPECT_TRUE(collector.WaitForOutput("session resumed\n"));
  limit(RLIM_INFINITY);
  EXPECT_EQ(PublishNumbers("gw", 401, 500).Wait(), 0);
  EXPECT_TRUE(WaitForReport("events:               500")) << Show("--report") << collector.output();
  EXPECT_EQ(Show("--holes"), "");
  collector.Signal(SIGTERM);
  EXPECT_EQ(collector.Wait(), 0);
}

}  // namespace
}  // namespace zor::test
