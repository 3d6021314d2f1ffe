// Operators' requests to the message server.
#include <sys/stat.h>
#include <zor/control_wire.h>

#include "msgsvr/unread.h"
#include "msgsvr_fixture.h"
#include "programs/json.h"

namespace zor::test {
namespace {

using daemon::Json;

const std::string kKilobyte(1000, 'x');

class MsgsvrControlTest : public OwnMsgsvrTest {
 protected:
  // The reply to an operator's request.
  Message Control(uint32_t type, const std::string &body = "") {
    const Message reply = AskAndFetch(operator_, MakeRequest(type, body, 0, 77));
    EXPECT_EQ(reply.header.type & ZOR_MSG_TYPE_MASK, type);
    EXPECT_EQ(reply.header.sequence, 77u);
    return reply;
  }
  uint32_t Result(uint32_t type, const std::string &body = "") { return Control(type, body).header.data; }

  // Reads the list again.
  void List() {
    const Message reply = Control(ZOR_MSG_CONTROL_LIST);
    list_.reset(cJSON_Parse(reply.body.c_str()));
    ASSERT_NE(list_, nullptr) << reply.body;
  }
  // What the list says about a client, a member of it or of that member's object.
  const cJSON *Of(const std::string &name, const char *member, const char *inner = nullptr) const {
    const cJSON *client = nullptr;
    cJSON_ArrayForEach(client, cJSON_GetObjectItem(list_.get(), "clients")) {
      if (cJSON_GetObjectItem(client, "name")->valuestring != name) continue;
      const cJSON *item = cJSON_GetObjectItem(client, member);
      return inner == nullptr ? item : cJSON_GetObjectItem(item, inner);
    }
    ADD_FAILURE() << name << " is not in the list";
    return nullptr;
  }
  double Number(const std::string &name, const char *member, const char *inner = nullptr) const {
    return cJSON_GetNumberValue(Of(name, member, inner));
  }
  // "to type, ..." of the pending requests, the client's latest message with a "!".
  std::string Pending(const std::string &name) const {
    std::string text;
    const cJSON *request = nullptr;
    cJSON_ArrayForEach(request, Of(name, "pending")) {
      text += cJSON_GetObjectItem(request, "to")->valuestring + std::string(" ") +
              std::to_string(cJSON_GetObjectItem(request, "type")->valueint) +
              (cJSON_IsTrue(cJSON_GetObjectItem(request, "latest")) ? "!, " : ", ");
    }
    return text;
  }

  // Starts copying to the operator.
  uint32_t Monitor(const ZOR_CONTROL_FILTER &filter) {
    return Result(ZOR_MSG_CONTROL_MONITOR, {reinterpret_cast<const char *>(&filter), sizeof filter});
  }

  // The trace settings of a daemon of that name: what operators see and what the registration's reply carries.
  std::string Trace(std::string name) {
    name.resize(ZOR_MSG_NAME_SIZE);
    return Control(ZOR_MSG_CONTROL_TRACE_GET, name).body;
  }
  uint32_t SetTrace(const std::string &json) { return Result(ZOR_MSG_CONTROL_TRACE_SET, json); }

  void StartWithOperator(const std::string &settings = "") {
    Start(settings);
    operator_ = Client("ctl1");
  }

  WireClient operator_;
  Json list_;
};

TEST_F(MsgsvrControlTest, RepliesOnlyToRootAndTheServersOwnUser) {
  StartWithOperator("tcp = 127.0.0.1:0\n");
  EXPECT_EQ(Result(ZOR_MSG_CONTROL_LIST), ZOR_CONTROL_OK);
  EXPECT_EQ(Result(ZOR_MSG_CONTROL_LIST, "x"), ZOR_CONTROL_MALFORMED);
  for (const uint32_t type : {ZOR_MSG_CONTROL_COPY, ZOR_MSG_CONTROL_LAST}) EXPECT_EQ(Result(type), ZOR_CONTROL_UNKNOWN);
  const std::string announced = "msgsvr: listening on 127.0.0.1:";
  ASSERT_TRUE(server_->WaitForOutput(announced) && server_->WaitForOutput("\n"));
  const size_t at = server_->output().find(announced) + announced.size();
  const WireClient remote = WireClient::ConnectTcp(static_cast<uint16_t>(std::stoi(server_->output().substr(at))));
  remote.Register("remote");
  EXPECT_EQ(remote.Ask(MakeRequest(ZOR_MSG_CONTROL_LIST)).header.data, ZOR_CONTROL_REFUSED);
  // With a destination it is a message like any other.
  remote.Send(MakeMessage(ZOR_MSG_CONTROL_LIST, "", "receiver"));
  EXPECT_EQ(NameOf(receiver_.Next().header.source), "remote");
  if (::geteuid() != 0) return;
  ::chmod(root_.Path("").c_str(), 0755);
  ::chmod(RealPath(ZOR_PATH_MSGSVR).c_str(), 0777);
  Child stranger = Child::Function([&] {
    if (::setuid(12345) != 0) return 1;
    return Client("stranger").Ask(MakeRequest(ZOR_MSG_CONTROL_LIST)).header.data == ZOR_CONTROL_REFUSED ? 0 : 2;
  });
  EXPECT_EQ(stranger.Wait(), 0);
}

TEST_F(MsgsvrControlTest, ListsWhatADaemonHasLeftUnread) {
  StartWithOperator("queue_bytes = 1000000\n");
  const std::string hostile = "/a\"\\\x01\xff|/\xc3\xa4|\xed\xa0\x80|" + std::string(1500, '"') + '\0';
  Tell(receiver_, MakeRequest(ZOR_MSG_RESTFUL_REGISTER, hostile));
  Tell(receiver_, MakeRequest(ZOR_MSG_RESTFUL_REGISTER, hostile));
  Tell(sender_, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "receiver", 0x2DA05));
  for (int i = 0; i < 3; ++i) Tell(sender_, MakeMessage(kType, "", "receiver", 0, kKilobyte));
  List();
  EXPECT_EQ(Number("receiver", "in"), 5) << "its registration, its patterns and the questions behind them";
  EXPECT_EQ(Number("receiver", "out"), 6);
  EXPECT_EQ(Number("receiver", "pid"), ::getpid());
  EXPECT_TRUE(cJSON_IsTrue(Of("ctl1", "self")) && cJSON_IsFalse(Of("sender", "self")));
  EXPECT_EQ(cJSON_GetArrayItem(Of("receiver", "events"), 0)->valueint, 0x2DA05);
  EXPECT_EQ(cJSON_GetArrayItem(Of("receiver", "patterns"), 0)->valuestring, std::string("/a\"\\??"));
  EXPECT_EQ(cJSON_GetArrayItem(Of("receiver", "patterns"), 1)->valuestring, std::string("/\xc3\xa4"));
  if (!msgsvr::UnreadBytes().Of(receiver_.fd())) {
    EXPECT_TRUE(cJSON_IsTrue(Of("receiver", "waiting", "at_least")));
    GTEST_SKIP() << "the kernel does not say what is unread";
  }
  EXPECT_EQ(Number("receiver", "waiting", "messages"), 3);
  EXPECT_EQ(Number("receiver", "waiting", "bytes"), 3 * 1040);
  EXPECT_TRUE(cJSON_IsFalse(Of("receiver", "waiting", "at_least")));
  // Both in its socket and in the server's queue.
  for (int i = 0; i < 500; ++i) sender_.Send(MakeMessage(kType, "", "receiver", 0, kKilobyte));
  Tell(sender_, MakeRequest(ZOR_MSG_SEND_FAILED_NOTICE));
  List();
  EXPECT_EQ(Number("receiver", "waiting", "bytes"), 503 * 1040);
  EXPECT_TRUE(cJSON_IsFalse(Of("receiver", "waiting", "at_least")));
  EXPECT_EQ(Number("receiver", "waiting", "messages"), 503);
}

TEST_F(MsgsvrControlTest, ListsHowOftenWhoSendsToWhom) {
  StartWithOperator("deadlock_seconds = 0\nstorm_rate = 0\n");
  std::vector<std::string> flows;  // of the sender, the slowest first
  const auto list = [&] {
    List();
    std::multimap<int, std::string> byRate;
    const cJSON *flow = nullptr;
    cJSON_ArrayForEach(flow, Of("sender", "flows")) {
      const auto number = [&](const char *member) { return cJSON_GetObjectItem(flow, member)->valueint; };
      const std::string to = cJSON_GetObjectItem(flow, "to")->valuestring;
      if (number("per_second") > 0) byRate.emplace(number("per_second"), to + " " + std::to_string(number("type")));
    }
    flows.clear();
    for (auto &[rate, text] : byRate) flows.push_back(text);
  };
  const std::vector<std::string> expected = {"ctl1 1", "receiver 4660", " 186885"};
  list();
  const double inBytes = Number("sender", "in_bytes"), outBytes = Number("receiver", "out_bytes");
  int rounds = 0;
  ASSERT_TRUE(WaitUntil([&] {
    ++rounds;
    sender_.Send(MakeMessage(1, "", "ctl1"));
    EXPECT_EQ(operator_.Next().header.type, 1u);
    for (int i = 0; i < 3; ++i) sender_.Send(MakeMessage(kType, "", "receiver", 0, "abcd"));
    for (int i = 0; i < 3; ++i) receiver_.Next();
    for (int i = 0; i < 9; ++i) sender_.Send(MakeRequest(0x2DA05));
    list();
    return flows == expected;
  }));
  EXPECT_EQ(Number("sender", "in_bytes") - inBytes, rounds * (40 + 3 * 44 + 9 * 40));
  EXPECT_EQ(Number("receiver", "out_bytes") - outBytes, rounds * 3 * 44);
  EXPECT_TRUE(WaitUntil([&] {
    list();
    return flows.empty();
  })) << "a flow ends";
}

TEST_F(MsgsvrControlTest, ListsWhoWaitsForWhom) {
  StartWithOperator();
  const auto request = [](const char *to, uint32_t type) { return MakeMessage(type, "", to, 0, "", type); };
  sender_.Send(request("receiver", 0x4001));
  receiver_.Send(request("sender", 0x4002));
  sender_.Send(request("receiver", 0x4003));
  ASSERT_EQ(sender_.Next().header.type, 0x4002u);
  EXPECT_TRUE(IsNotice(sender_.Ask(request("nobody", 0x4004)), 0x4004));
  Tell(operator_, MakeMessage(kType, "", "receiver"));
  operator_.Send(MakeRequest(ZOR_MSG_SYNC_WAIT, "gate"));
  List();
  EXPECT_EQ(Pending("sender"), "receiver 16385, receiver 16387, ") << "what went nowhere is not pending";
  EXPECT_EQ(Pending("receiver"), "sender 16386!, ");
  EXPECT_EQ(Pending("ctl1"), " 20504, ") << "at a barrier";
  // Many daemons reply with a new number; a request of another type is no reply, whatever its number.
  receiver_.Send(MakeMessage(0x4001, "", "sender", 0, "", 12345));
  receiver_.Send(MakeMessage(0x9999, "", "sender", 0, "", 0x4003));
  ASSERT_EQ(sender_.Next().header.type, 0x4001u);
  ASSERT_EQ(sender_.Next().header.type, 0x9999u);
  List();
  EXPECT_EQ(Pending("sender"), "receiver 16387, ");
  EXPECT_EQ(Pending("receiver"), "sender 16386, sender 39321!, ");
}

struct Copy {
  explicit Copy(const Message &message) {
    EXPECT_EQ(message.header.type, ZOR_MSG_CONTROL_COPY);
    EXPECT_EQ(NameOf(message.header.source), "") << "the server's own";
    EXPECT_GE(message.body.size(), sizeof head + sizeof frame.header);
    message.body.copy(reinterpret_cast<char *>(&head), sizeof head);
    message.body.copy(reinterpret_cast<char *>(&frame.header), sizeof frame.header, sizeof head);
    frame.body = message.body.substr(sizeof head + sizeof frame.header);
  }
  // "SENDER > RECEIVER type", "lost" for what was not delivered.
  std::string Text() const {
    return NameOf(frame.header.source) + " > " + NameOf(head.receiver) + " " + std::to_string(frame.header.type) +
           (head.outcome == ZOR_CONTROL_DELIVERED ? "" : " lost");
  }
  ZOR_CONTROL_COPY head;
  Message frame;
};

TEST_F(MsgsvrControlTest, CopiesTheTrafficThatAMonitorAsksFor) {
  StartWithOperator();
  const WireClient third = Client("third");
  Tell(receiver_, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", 0x2DA05));
  Tell(third, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", 0x2DA05));
  struct {
    ZOR_CONTROL_FILTER filter;
    std::vector<std::string> copies;
  } const cases[] = {
      {{"", 0, 5000, 5001}, {"sender > receiver 5000", "receiver > sender 5001"}},
      {{"sender", ZOR_CONTROL_SENT, 0, 5002},
       {"sender > receiver 5000", "sender > nobody 5002 lost", "sender >  1797"}},
      {{"sender", ZOR_CONTROL_RECEIVED, 0, 0}, {"receiver > sender 5001", " > sender 264", " > sender 1797"}},
      {{"", 0, 0x2DA05, 0x2DA06}, {"sender > receiver 186885", "sender > third 186885", "sender >  186886 lost"}},
      {{"", 0, 5001, 0}, {"receiver > sender 5001"}},
  };
  for (const auto &[filter, expected] : cases) {
    ASSERT_EQ(Monitor(filter), ZOR_CONTROL_OK);
    sender_.Send(MakeMessage(5000, "liar", "receiver", 1, std::string(2048, 'x')));
    receiver_.Next();
    receiver_.Send(MakeMessage(5001, "", "sender"));
    sender_.Next();
    sender_.Ask(MakeMessage(5002, "", "nobody"));
    for (const uint32_t event : {0x2DA05u, 0x2DA06u}) sender_.Send(MakeMessage(event, "", ""));
    sender_.Ask(MakeCount("nobody"));
    receiver_.Next();
    operator_.Send(MakeRequest(ZOR_MSG_CONTROL_MONITOR));
    std::vector<std::string> copies;
    for (Message message; message = operator_.Next(), message.header.type == ZOR_MSG_CONTROL_COPY;) {
      const Copy copy(message);
      copies.push_back(copy.Text());
      EXPECT_EQ(copy.head.missed, 0u);
      EXPECT_EQ(copy.head.frameSize, ZOR_MSG_HEAD_SIZE + copy.frame.header.bodyLength);
      EXPECT_EQ(copy.frame.body.size(), copy.frame.header.type == 5000 ? 2048 - 72 : copy.frame.header.bodyLength);
    }
    EXPECT_EQ(copies, expected);
  }
  for (const ZOR_CONTROL_FILTER &filter :
       {ZOR_CONTROL_FILTER{"", 4, 0, 0}, ZOR_CONTROL_FILTER{"", 0, 2, 1}, ZOR_CONTROL_FILTER{"", 0, 0, 0x100000}}) {
    EXPECT_EQ(Monitor(filter), ZOR_CONTROL_MALFORMED);
  }
  EXPECT_EQ(Result(ZOR_MSG_CONTROL_MONITOR, "short"), ZOR_CONTROL_MALFORMED);
}

TEST_F(MsgsvrControlTest, GivesAnEventToThoseThatOnlyObserveAfterTheOthers) {
  StartWithOperator();
  const WireClient third = Client("third");
  EXPECT_EQ(receiver_.Ask(MakeRequest(ZOR_MSG_CONTROL_GAPS, "", 1)).header.data, ZOR_CONTROL_OK);
  Tell(receiver_, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", 0x2DA05));
  Tell(third, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", 0x2DA05));
  ASSERT_EQ(Monitor({"", 0, 0x2DA05, 0}), ZOR_CONTROL_OK);
  sender_.Send(MakeMessage(0x2DA05, "", ""));
  for (const char *text : {"sender > third 186885", "sender > receiver 186885"}) {
    EXPECT_EQ(Copy(operator_.Next()).Text(), text);
  }
}

TEST_F(MsgsvrControlTest, NeitherWaitsForAStoppedMonitorNorCutsItOff) {
  StartWithOperator("queue_bytes = 100000\n");
  std::vector<WireClient> reading;
  for (int i = 0; i < 9; ++i) {
    ASSERT_EQ(Monitor({"", 0, kType, 0}), ZOR_CONTROL_OK);
    reading.push_back(std::exchange(operator_, Client("ctl" + std::to_string(i))));
  }
  ASSERT_EQ(Monitor({"", 0, kType, 0}), ZOR_CONTROL_OK);  // this one does not read
  constexpr uint32_t kMessages = 600;
  for (uint32_t i = 0; i < kMessages; ++i) {
    sender_.Send(MakeMessage(kType, "", "receiver", i, kKilobyte));
    ASSERT_EQ(receiver_.Next().header.data, i);
    for (const WireClient &monitor : reading) ASSERT_EQ(Copy(monitor.Next()).frame.header.data, i);
  }
  uint32_t copies = 0, missed = 0, last = 0;
  for (uint32_t i = kMessages; missed == 0; ++i) {
    Tell(sender_, MakeMessage(kType, "", "receiver", i));
    for (; missed == 0 && !operator_.NothingArrived(); ++copies) {
      const Copy copy(operator_.Next());
      missed = copy.head.missed;
      last = copy.frame.header.data;
    }
  }
  EXPECT_EQ(copies + missed, last + 1);
  // The end report counts what was missed after the latest copy.
  operator_ = Client("ctl10");
  ASSERT_EQ(Monitor({"", 0, kType, 0}), ZOR_CONTROL_OK);
  for (uint32_t i = 0; i < kMessages; ++i) {
    sender_.Send(MakeMessage(kType, "", "receiver", i, kKilobyte));
    receiver_.Next();
  }
  Tell(sender_, MakeRequest(ZOR_MSG_SEND_FAILED_NOTICE));  // the server has seen them all
  operator_.Send(MakeRequest(ZOR_MSG_CONTROL_MONITOR));
  Message message;
  for (copies = 0; (message = operator_.Next()).header.type == ZOR_MSG_CONTROL_COPY;)
    copies += 1 + Copy(message).head.missed;
  message.body.copy(reinterpret_cast<char *>(&missed), sizeof missed);
  EXPECT_GT(missed, 0u);
  EXPECT_EQ(copies + missed, kMessages);
}

constexpr char kDefault[] = R"({"name":"cms","output":"stdout","file_kib":1024,"levels":{},"source":"default"})";

TEST_F(MsgsvrControlTest, KeepsTraceSettingsOverARestart) {
  const std::string settings = "trace.web = msg=debug\ntrace_output.* = file\n";
  StartWithOperator(settings);
  EXPECT_EQ(Trace("web"), R"({"name":"web","output":"file","file_kib":1024,"levels":{"msg":"debug"},"source":"file"})");
  EXPECT_EQ(SetTrace(R"({"name":"*","file_kib":2048,"output":"stdout"})"), ZOR_CONTROL_OK);
  EXPECT_EQ(SetTrace(R"({"name":"web","levels":{"loop":3,"all":"info"},"source":"file"})"), ZOR_CONTROL_OK);
  EXPECT_EQ(SetTrace(R"({"name":"web","output":"10.0.0.1:5000"})"), ZOR_CONTROL_OK);
  EXPECT_EQ(SetTrace(R"({"name":"gone","file_kib":4096})"), ZOR_CONTROL_OK);
  EXPECT_EQ(Result(ZOR_MSG_CONTROL_TRACE_CLEAR, std::string("gone").append(8, '\0')), ZOR_CONTROL_OK);
  TearDown();
  StartWithOperator(settings);
  EXPECT_EQ(Trace("web"), R"({"name":"web","output":"10.0.0.1:5000","file_kib":2048,)"
                          R"("levels":{"loop":3,"all":"info"},"source":"kept"})");
  EXPECT_EQ(Trace("gone"), R"({"name":"gone","output":"stdout","file_kib":2048,"levels":{},"source":"kept"})");
  const std::string body = Connect().Register("web").body;
  EXPECT_EQ(body.substr(8 + 16, 14), std::string("10.0.0.1:5000\0", 14));
  EXPECT_EQ(body.substr(8 + 48 + 4, 4), std::string("all\0", 4)) << "which makes a daemon forget the others";
  EXPECT_EQ(Result(ZOR_MSG_CONTROL_TRACE_CLEAR), ZOR_CONTROL_OK);
  TearDown();
  std::ofstream(root_.Path("/var/lib/zor/msgsvr.trace")) << R"([{"name":"web","file_kib":2048},{"name":"web"}])";
  StartWithOperator();
  EXPECT_EQ(Trace("cms"), kDefault);
  EXPECT_TRUE(LogHolds("/var/lib/zor/msgsvr.trace: damaged, set aside"));
  EXPECT_TRUE(Exists("/var/lib/zor/msgsvr.trace.damaged"));
  TearDown();
  std::filesystem::remove(root_.Path("/var/lib/zor/msgsvr.trace.damaged"));
  std::filesystem::create_directory(root_.Path("/var/lib/zor/msgsvr.trace.damaged"));
  std::ofstream(root_.Path("/var/lib/zor/msgsvr.trace")) << "[";
  StartWithOperator();
  EXPECT_EQ(SetTrace(R"({"name":"cms","file_kib":2048})"), ZOR_CONTROL_FAILED) << "or what is there would be lost";
}

TEST_F(MsgsvrControlTest, ChangesNoTraceSettingsThatAreWrongOrCannotBeKept) {
  StartWithOperator("kept_file = /settings/trace\n");  // the directory is a file
  EXPECT_EQ(SetTrace(R"({"name":"cms","file_kib":2048})"), ZOR_CONTROL_FAILED);
  std::string many = R"({"name":"cms","levels":{)";
  for (int i = 0; i < 65; ++i) many += "\"m" + std::to_string(i) + "\":1,";
  many.back() = '}';
  const std::string deep(1000, '[');
  const std::vector<std::string> wrong = {"",
                                          "[]",
                                          R"({"name":"cms"})",
                                          R"({"file_kib":2048})",
                                          R"({"name":"","file_kib":2048})",
                                          R"({"name":"twelve_chars","file_kib":2048})",
                                          R"({"name":"a b","file_kib":2048})",
                                          R"({"name":7,"file_kib":2048})",
                                          R"({"name":"cms","file_kib":1023})",
                                          R"({"name":"cms","file_kib":1e300})",
                                          R"({"name":"cms","file_kib":2048.5})",
                                          R"({"name":"cms","file_kib":"2048"})",
                                          R"({"name":"cms","output":"tape"})",
                                          R"({"name":"cms","output":"10.0.0.1:0"})",
                                          R"({"name":"cms","output":"10.0.0.1:0x50"})",
                                          R"({"name":"cms","levels":[]})",
                                          R"({"name":"cms","levels":{"msg":"loud"}})",
                                          R"({"name":"cms","levels":{"msg":-1}})",
                                          R"({"name":"cms","levels":{"twelve_chars":1}})",
                                          R"({"name":"cms","levels":{"m":1,"m":2}})",
                                          R"({"name":"cms","file_kib":2048} x)",
                                          R"({"name":"cms","file_kib":2048,"other":1})",
                                          many + "}",
                                          R"({"name":"cms","levels":)" + deep};
  for (const std::string &json : wrong) {
    EXPECT_EQ(SetTrace(json), ZOR_CONTROL_MALFORMED) << json;
  }
  for (const uint32_t type : {ZOR_MSG_CONTROL_TRACE_GET, ZOR_MSG_CONTROL_TRACE_CLEAR}) {
    for (const char *name : {"cms", "twelve_chars"}) EXPECT_EQ(Result(type, name), ZOR_CONTROL_MALFORMED) << name;
  }
  EXPECT_EQ(Trace("cms"), kDefault);
}

}  // namespace
}  // namespace zor::test
