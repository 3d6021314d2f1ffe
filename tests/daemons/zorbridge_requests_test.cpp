// Requests from outside: each is answered once, with the reply or with the reason why there is none.
#include <zor/log.h>
#include <zor/trace.h>

#include <filesystem>

#include "daemons/zorbridge_fixture.h"

namespace zor::test {
namespace {

using testing::HasSubstr;

constexpr uint32_t kDouble = 0x4001;  // the worker replies with twice the data word
constexpr uint32_t kLast = 0x4003;    // it ends instead

// A daemon that serves these in a process of its own.
int Work() {
  if (ZOR_MSG_Init("worker") != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegSyncMsgProc(
      kDouble,
      [](ZOR_MSG_HEAD *msg) { return ZOR_MSG_MsgResponseBuilder(msg, 2 * msg->data, msg + 1, msg->bodyLength); }, 0,
      nullptr);
  ZOR_MSG_RegMsgProc(
      kLast, [](ZOR_MSG_HEAD *) { ::_exit(0); }, 0, nullptr);
  return static_cast<int>(ZOR_MSG_GetAndDispatch());
}

class ZorbridgeRequests : public ZorbridgeTest {
 protected:
  void SetUp() override {
    worker_.emplace(Child::Function(Work));
    const WireClient client = WireClient::Connect(root_.Path("/var/msgsvr"));
    client.Register("tester");
    EXPECT_TRUE(WaitUntil(
        [&] { return client.Ask(MakeMessage(ZOR_MSG_GET_PROCESS_NUM, "", "", 0, "worker", 1)).header.data == 1; }));
  }
  void StartWorkersBridge(const std::string &more = "") {
    StartBridge("call.worker = 0x4001 0x4002 16387\ncall.nobody = *\n" + more);
  }
  // Publishes a request; it need not be one that can be answered.
  void Request(const std::string &target, const std::string &payload, const std::vector<std::string> &properties) {
    std::vector<std::string> arguments = {"mosquitto_pub", "-q", "1", "-t", "zor/gw7/call/" + target, "-m", payload};
    for (size_t at = 0; at < properties.size(); at += 2) {
      arguments.insert(arguments.end(), {"-D", "publish", properties[at], properties[at + 1]});
    }
    EXPECT_EQ(broker_.Client(arguments).Wait(), 0);
  }
  // The answer to a request.
  Json Ask(const std::string &target, const std::string &payload = "{}", const std::string &seconds = "20") {
    const std::string id = std::to_string(++count_);
    Request(target, payload,
            {"response-topic", "answers/" + id, "correlation-data", id, "message-expiry-interval", seconds});
    EXPECT_TRUE(Shown("answers/" + id + " ")) << errors_.Text();
    EXPECT_TRUE(Shown("}\n"));
    const auto answers = Received("answers/" + id);
    return answers.size() == 1 ? answers[0].second : Json();
  }

  std::optional<Child> worker_;
  int count_ = 0;
};

TEST_F(ZorbridgeRequests, AreAnsweredEachWithItsResult) {
  StartWorkersBridge();
  const struct {
    const char *target, *payload, *seconds, *result, *text;
  } kCases[] = {
      {"worker/0x4001", R"({"data":21})", "20", "done", R"("data":42)"},
      {"worker/16385", R"({"base64":"aGk=","data":1})", "20", "done", R"("text":"hi")"},
      {"worker/0x4004", "{}", "20", "refused", "call.worker"},
      {"other/0x4001", "{}", "20", "refused", "call.other"},
      {"bridge/status", "{}", "20", "refused", "call.bridge"},
      {"worker/0x4001", "no JSON", "20", "invalid", "reason"},
      {"worker/0x4001", R"({"data":-1})", "20", "invalid", "reason"},
      {"worker/NONSENSE", "{}", "20", "invalid", "NONSENSE"},
      {"nobody/0x4001", "{}", "20", "absent", "nobody"},
      {"worker/0x4002", "{}", "5", "late", "worker"},
      {"worker/0x4003", "{}", "5", "late", "worker"},  // it has read it, and ends
      {"worker/0x4001", "{}", "20", "absent", "worker"},
  };
  for (const auto &each : kCases) {
    const Json answer = Ask(each.target, each.payload, each.seconds);
    EXPECT_EQ(answer.value("result", ""), each.result) << each.target << " " << answer;
    EXPECT_EQ(answer.value("gateway", ""), "gw7");
    EXPECT_THAT(answer.dump(), HasSubstr(each.text));
  }
}

TEST_F(ZorbridgeRequests, AreNotServedWhenTheyCannotBeAnsweredOrComeTwice) {
  StartWorkersBridge("call.bridge = status\n");
  const std::vector<std::string> whole = {"response-topic", "answers/x", "correlation-data", "x"};
  Request("worker/0x4001", "{}", {"response-topic", "answers/none"});
  Request("worker/0x4001", "{}", {"correlation-data", "none"});
  Request("worker/0x4001", "{}", {"response-topic", "zor/gw7/event/lan/Up", "correlation-data", "own"});
  Request("worker/0x4001", "{}", {"response-topic", "answers/none", "correlation-data", std::string(1024, 'x')});
  Request("worker/0x4001", "{}", whole);
  Request("worker/0x4001", "{}", whole);
  EXPECT_TRUE(Shown("answers/x "));
  EXPECT_EQ(broker_
                .Client({"mosquitto_pub", "-r", "-q", "1", "-t", "zor/gw7/call/worker/0x4001", "-m", "{}", "-D",
                         "publish", "response-topic", "answers/r", "-D", "publish", "correlation-data", "r"})
                .Wait(),
            0);
  Stop(SIGTERM);
  StartBridge("call.bridge = status\n");  // gets the retained one at its start, if it gets any
  const Json status = Ask("bridge/status");
  EXPECT_EQ(status["status"]["gateway"], "gw7");
  EXPECT_EQ(Received("answers/x").size(), 1u);
  EXPECT_EQ(Received("answers/none").size() + Received("zor/gw7/event/").size(), 0u);
  EXPECT_LE(Received("answers/r").size(), 1u) << "at most the live one";
}

TEST_F(ZorbridgeRequests, AreGoneWithADaemonThatHasNotReadThem) {
  StartWorkersBridge();
  worker_->Signal(SIGSTOP);
  Request("worker/0x4001", "{}",
          {"response-topic", "answers/s", "correlation-data", "s", "message-expiry-interval", "60"});
  const WireClient client = WireClient::Connect(root_.Path("/var/msgsvr"));
  client.Register("ctl1");
  EXPECT_TRUE(WaitUntil([&] {
    const std::string list = client.AskAndFetch(MakeMessage(0xFF000, "", "", 0, "", 1), root_.Path("")).body;
    return list.find(R"("type":16385)") != list.npos;
  })) << "the request waits at the daemon";
  worker_->Signal(SIGKILL);
  EXPECT_TRUE(Shown("answers/s "));
  EXPECT_TRUE(Shown(R"("result":"gone")")) << subscriber_->output();
}

TEST_F(ZorbridgeRequests, AreBusyBeyondTheLimits) {
  StartWorkersBridge("calls = 2\ncalls_per_second = 5\n");
  for (const char *id : {"1", "2", "3"}) {
    Request("worker/0x4002", "{}",
            {"response-topic", "answers/never", "correlation-data", id, "message-expiry-interval", "60"});
  }
  EXPECT_TRUE(Shown(R"("result":"busy")")) << "two at once";
  const Publisher publisher(root_);
  publisher.Event(1);
  EXPECT_TRUE(Shown("\"n\":1}")) << "the bridge serves on";
}

// Instead of a result, a daemon with the log daemon's name leaves a link to another file of the bridge's.
int LinkInsteadOfAResult() {
  if (ZOR_MSG_Init(ZOR_LOG_DAEMON_NAME) != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegSyncMsgProc(
      ZOR_LOG_MSG_QUERY,
      [](ZOR_MSG_HEAD *msg) {
        const auto *query = reinterpret_cast<const ZOR_LOG_QUERY *>(msg + 1);
        std::filesystem::create_symlink("/etc/passwd", std::getenv("ZOR_ROOT") + std::string(query->text));
        return ZOR_MSG_MsgResponseBuilder(msg, 1, nullptr, 0);
      },
      0, nullptr);
  return static_cast<int>(ZOR_MSG_GetAndDispatch());
}

TEST_F(ZorbridgeRequests, ReadNoFileThatAResultOfTheLogLinksTo) {
  StartBridge("call.bridge = log\n");
  std::filesystem::create_directories(root_.Path("/var/syslog"));
  const Child log = Child::Function(LinkInsteadOfAResult);
  Json answer;
  EXPECT_TRUE(WaitUntil([&] { return (answer = Ask("bridge/log"))["result"] != "absent"; }));
  EXPECT_EQ(answer["result"], "gone") << answer;
}

TEST_F(ZorbridgeRequests, ToTheBridgeShowTheLog) {
  StartBridge("call.bridge = status log\n");
  EXPECT_EQ(Ask("bridge/log")["result"], "absent");
  Child syslogd = Child::Program({SYSLOGD_PROGRAM});
  ASSERT_TRUE(syslogd.WaitForOutput("on the bus"));
  ASSERT_EQ(ZOR_MSG_Init("tester"), ZOR_OK);
  ZOR_LOG_API_Record_KLog(ZOR_LOG_KERNEL, ZOR_LOG_ERROR, 0, "first");
  ZOR_LOG_API_Record_KLog(ZOR_LOG_KERNEL, ZOR_LOG_WARNING, 0, "second");
  ZOR_LOG_API_Flush_Log(__LINE__, "test");
  ZOR_MSG_Destroy();
  EXPECT_THAT(Ask("bridge/log", R"({"count":1})")["lines"].dump(), HasSubstr("second"));
  EXPECT_THAT(Ask("bridge/log", R"({"level":"error","type":"kernel"})")["lines"].dump(),
              testing::AllOf(HasSubstr("first"), Not(HasSubstr("second"))));
  syslogd.Signal(SIGSTOP);
  EXPECT_EQ(Ask("bridge/log", "{}", "1")["result"], "late");
  syslogd.Signal(SIGCONT);
  EXPECT_EQ(Ask("bridge/log")["result"], "done");
  EXPECT_TRUE(std::filesystem::is_empty(root_.Path("/var/syslog"))) << "what was written too late is removed, too";
  EXPECT_EQ(Ask("bridge/log", R"({"level":"loud"})")["result"], "invalid");
  EXPECT_EQ(Ask("bridge/nonsense")["result"], "refused");
}

class ZorbridgeTrace : public ZorbridgeRequests {
 protected:
  ZorbridgeTrace() {
    AskServer(0xFF004, R"({"name":"traced","levels":{"msg":"error"}})");
    former_ = TraceSettings();
  }

  std::string AskServer(uint32_t type, const std::string &body) const {
    const WireClient client = WireClient::Connect(root_.Path("/var/msgsvr"));
    client.Register("ctl1");
    return client.AskAndFetch(MakeMessage(type, "", "", 0, body, 1), root_.Path("")).body;
  }
  // Again while the server's disk takes longer than the bridge waits.
  Json AskForTrace(const std::string &payload) {
    Json answer = Ask("bridge/trace", payload);
    for (int tries = 0; tries < 20 && answer.value("result", "") == "late"; ++tries)
      answer = Ask("bridge/trace", payload);
    return answer;
  }
  Json TraceSettings() const { return Json::parse(AskServer(0xFF003, std::string("traced\0\0\0\0\0\0", 12))); }
  bool AreRestored() const {
    return WaitUntil([this] { return TraceSettings() == former_; });
  }

  Json former_;
};

TEST_F(ZorbridgeTrace, PassesLinesOnAndIsRestoredAfterACrash) {
  StartBridge("call.bridge = trace\n");
  for (const std::string &payload :
       {std::string(R"({"daemon":"cms"})"),
        R"({"daemon":"cms","levels":{"a":)" + std::string(60'000, '[') + std::string(60'000, ']') + "}}"}) {
    EXPECT_EQ(Ask("bridge/trace", payload)["result"], "invalid");
  }
  const Json answer = AskForTrace(R"({"daemon":"traced","levels":{"demo":"debug"},"seconds":3600})");
  EXPECT_EQ(answer["result"], "done") << answer;
  Child traced = Child::Function([] {
    if (ZOR_MSG_Init("traced") != ZOR_OK) return 1;
    ZOR_TRACE_PrintInfoEx("demo", ZOR_TRACE_GetLevelByString("debug"), "%s", "a line \"of\" it");
    return 0;
  });
  EXPECT_TRUE(Shown("zor/gw7/trace/traced {"));
  EXPECT_TRUE(Shown(R"(a line \"of\" it)"));
  EXPECT_NE(TraceSettings(), former_);
  Stop(SIGKILL);
  Start(Settings());
  EXPECT_TRUE(AreRestored()) << TraceSettings() << former_;
}

TEST_F(ZorbridgeTrace, IsRestoredWhenTheMessageServerIsBack) {
  StartBridge("call.bridge = trace\n");
  EXPECT_EQ(AskForTrace(R"({"daemon":"traced","levels":{"demo":"debug"},"seconds":5})")["result"], "done");
  server_->Signal(SIGKILL);
  server_->Wait();
  EXPECT_TRUE(Logged("restored when the message server is back"));
  StartServer();
  EXPECT_TRUE(AreRestored()) << TraceSettings() << former_;
}

TEST_F(ZorbridgeTrace, IsNotStartedWhenItsTimeIsOver) {
  StartBridge("call.bridge = trace\n");
  server_->Signal(SIGSTOP);
  Request("bridge/trace", R"({"daemon":"traced","levels":{"demo":"debug"}})",
          {"response-topic", "answers/t", "correlation-data", "t", "message-expiry-interval", "1"});
  EXPECT_TRUE(Shown("answers/t "));
  EXPECT_TRUE(Shown(R"("result":"late")")) << subscriber_->output();
  server_->Signal(SIGCONT);
  EXPECT_EQ(TraceSettings(), former_);
}

}  // namespace
}  // namespace zor::test
