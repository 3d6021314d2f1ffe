// A message server that asks the rules of access.
#include <gmock/gmock.h>
#include <zor/control_wire.h>

#include <vector>

#include "msgsvr_fixture.h"
#include "programs/access/pattern.h"
#include "programs/json.h"

namespace zor::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr uint32_t kEvent = 0x2DA05;
const std::string kMe = "user:" + std::to_string(::geteuid()) + " ";

class MsgsvrAccessTest : public OwnMsgsvrTest {
 protected:
  void WriteRules(const std::string &rules) const {
    std::filesystem::create_directories(RealPath("/etc/zor/access.d"));
    std::ofstream(RealPath("/etc/zor/access.d/50.conf")) << rules;
  }
  Message Reload(const std::string &rules) const {
    WriteRules(rules);
    return operator_.Ask(MakeRequest(ZOR_MSG_CONTROL_ACCESS_RELOAD));
  }
  void Use(const std::string &rules) const {
    const Message reply = Reload(rules);
    ASSERT_EQ(reply.header.data, ZOR_CONTROL_OK) << rules << reply.body;
  }
  // What the rules have refused.
  std::string Refused() const { return Control(ZOR_MSG_CONTROL_ACCESS_REFUSED); }
  double Listed(const char *counter) const {
    const daemon::Json list(cJSON_Parse(Control(ZOR_MSG_CONTROL_LIST).c_str()));
    const cJSON *server = cJSON_GetObjectItem(list.get(), "server");
    return cJSON_GetNumberValue(cJSON_GetObjectItem(cJSON_GetObjectItem(server, "access"), counter));
  }
  // The body of the reply, which may be in a file.
  std::string Control(uint32_t type) const {
    const Message reply = AskAndFetch(operator_, MakeRequest(type));
    EXPECT_EQ(reply.header.data, ZOR_CONTROL_OK);
    return reply.body;
  }
  void StartWithOperator(const std::string &settings = "") {
    Start(settings);
    operator_ = Client("operator");
  }
  // The server's number for the notice that refuses a message, 0 if it was let through.
  uint32_t NoticeOf(const Message &message) const {
    sender_.Send(message);
    const Message reply = sender_.Ask(MakeCount("nobody"));
    if (reply.header.type != ZOR_MSG_SEND_FAILED_NOTICE) return 0;
    EXPECT_EQ(sender_.Next().header.type, ZOR_MSG_GET_PROCESS_NUM);
    return reply.header.data;
  }
  // Reads what has come, up to a last message from the operator.
  std::vector<uint32_t> Received(const WireClient &client, const std::string &name) const {
    std::vector<uint32_t> types;
    operator_.Send(MakeMessage(0x4FFF, "", name));
    for (;;) {
      types.push_back(client.Next().header.type);
      if (types.back() == 0x4FFF || types.back() == 0) break;
    }
    types.pop_back();
    return types;
  }

  WireClient operator_;
};

Message Restful(const std::string &prefix, const std::string &name) {
  std::string body(ZOR_MSG_RESTFUL_HEAD_SIZE + 1, '\0');
  body.replace(offsetof(ZOR_MSG_RESTFUL_HEAD, prefix), prefix.size(), prefix);
  body.replace(offsetof(ZOR_MSG_RESTFUL_HEAD, name), name.size(), name);
  return MakeMessage(ZOR_MSG_RESTFUL_REQUEST, "", "", 0, body);
}

// Each request passes under its permission and without rules, is refused under its prohibition, and passes and is
// counted while that is only observed. What reached others is checked too, not only what the sender is told.
TEST_F(MsgsvrAccessTest, AsksForEachVerb) {
  StartWithOperator("route.0x5009 = receiver\n");
  Tell(receiver_, MakeRequest(ZOR_MSG_RESTFUL_REGISTER, "/r"));
  Tell(receiver_, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", kEvent));
  const struct {
    std::string what;
    Message message;
    bool isReceived;
  } kCases[] = {
      {"send 0x1234 to receiver", MakeMessage(kType, "", "receiver"), true},
      {"send 0x5009 to receiver", MakeMessage(0x5009, "", ""), true},
      {"send RESTFUL_REQUEST to receiver", Restful("/r", "x"), true},
      {"send 0x2DA00 to receiver", MakeMessage(ZOR_MSG_EVENT_FIRST, "", "receiver"), true},
      {"send 0xFF000 to receiver", MakeMessage(ZOR_MSG_CONTROL_LIST, "", "receiver"), true},
      {"send 0x701 to receiver", MakeMessage(ZOR_MSG_REGISTER_APP, "", "receiver"), true},
      {"send SAFE_EXIT to receiver", MakeRequest(ZOR_MSG_SAFE_EXIT, "receiver"), false},
      {"publish 0x2DA05", MakeMessage(kEvent, "", ""), true},
      {"publish 0x2DA05", MakeMessage(kEvent, "", "mic"), true},
      {"subscribe 0x2DA07", MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", 0x2DA07), false},
      {"subscribe 0x2DA07", MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "sender", 7), false},
      {"subscribe 0x2DA07 for receiver", MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "receiver", 0x2DA07), false},
      {"subscribe 0x2DA07 for receiver", MakeRequest(ZOR_MSG_UNSUBSCRIBE_EVENT, "receiver", 0x2DA07), false},
      {"post gate", MakeRequest(ZOR_MSG_SYNC_POST, "gate"), false},
      {"serve /api/x", MakeRequest(ZOR_MSG_RESTFUL_REGISTER, "/api/x"), false},
  };
  const std::string common = "allow = " + kMe + "control *\nallow = " + kMe + "send 0x4FFF to *\n";
  const std::string prohibition = common + "deny = " + kMe;
  double observed = 0, refused = 0;
  for (const auto &[what, message, isReceived] : kCases) {
    const auto passes = isReceived ? std::vector<uint32_t>{message.header.type} : std::vector<uint32_t>();
    Use("");
    EXPECT_EQ(NoticeOf(message), 0u) << what << " without rules";
    EXPECT_EQ(Received(receiver_, "receiver"), passes);
    Use(common + "allow = " + kMe + what + "\ndeny = any all\n");
    EXPECT_EQ(NoticeOf(message), 0u) << what << " as allowed";
    EXPECT_EQ(Received(receiver_, "receiver"), passes);
    Use("mode = observe\n" + prohibition + what + "\nallow = any all\n");
    EXPECT_EQ(NoticeOf(message), 0u) << what << " as observed";
    EXPECT_EQ(Received(receiver_, "receiver"), passes);
    EXPECT_EQ(Listed("would_be_refused"), ++observed) << what;
    Use(prohibition + what + "\nallow = any all\n");
    EXPECT_EQ(NoticeOf(message), message.header.type) << what << " as refused";
    EXPECT_EQ(Received(receiver_, "receiver"), std::vector<uint32_t>());
    EXPECT_EQ(Listed("refused"), ++refused) << what;
    EXPECT_THAT(Refused(), HasSubstr("50.conf:3: deny = " + kMe + what)) << "with its place";
  }
  EXPECT_TRUE(LogHolds("send 0x1234 to receiver would be refused to sender (pid "));
  EXPECT_TRUE(LogHolds("send 0x1234 to receiver refused to sender (pid "));
  EXPECT_TRUE(LogHolds(RealPath("/etc/zor/access.d/50.conf") + ":3: deny = " + kMe + "send 0x1234 to receiver\n"));
}

TEST_F(MsgsvrAccessTest, GrantsANameOnlyToWhoMayOwnIt) {
  WriteRules("deny = any own cms\nallow = " + kMe + "own *\n");
  Start();
  const WireClient squatter = Connect();
  EXPECT_EQ(NameOf(squatter.Register("cms").header.destination), "");
  EXPECT_TRUE(LogHolds("own cms refused to an unregistered client (pid "));
  EXPECT_EQ(NameOf(squatter.Register("web").header.destination), "web");
  EXPECT_EQ(NameOf(squatter.Register("cms").header.destination), "") << "and it has lost the other one";
  AwaitCount(sender_, "cms", 0);
  AwaitCount(sender_, "web", 0);
  EXPECT_EQ(NameOf(Connect().Register("sender").header.destination), "sender") << "a second one of the same user";
}

TEST_F(MsgsvrAccessTest, KeepsANameFromAnotherUser) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs another user";
  WriteRules("allow = any own *\n");
  Start("tcp = 127.0.0.1:0\n");
  ::chmod(root_.Path("").c_str(), 0755);
  ::chmod(RealPath(ZOR_PATH_MSGSVR).c_str(), 0777);
  Child stranger = Child::Function([&] {
    if (::setuid(12345) != 0) return 1;
    const WireClient client = Connect();
    if (!NameOf(client.Register("receiver").header.destination).empty()) return 2;
    return NameOf(client.Register("free").header.destination) == "free" ? 0 : 3;
  });
  EXPECT_EQ(stranger.Wait(), 0);
  EXPECT_TRUE(LogHolds("another user has the name"));
}

TEST_F(MsgsvrAccessTest, LetsAReplyThroughOnce) {
  StartWithOperator();
  Use("allow = " + kMe + "control *\nallow = " + kMe + "send 0x1234,0x4FFF to receiver\n");
  sender_.Send(MakeMessage(kType, "", "receiver", 0, "", 7));
  EXPECT_EQ(receiver_.Next().header.sequence, 7u);
  receiver_.Send(MakeMessage(kType, "", "sender", 0, "reply", 7));
  EXPECT_EQ(sender_.Next().body, "reply");
  EXPECT_TRUE(IsNotice(receiver_.Ask(MakeMessage(kType, "", "sender", 0, "again", 7)), kType));
}

TEST_F(MsgsvrAccessTest, AnEventForOneDaemonIsAnEventToo) {
  StartWithOperator();
  const std::string common = "allow = " + kMe + "control *\nallow = " + kMe + "send * to receiver\n";
  Use(common);
  EXPECT_EQ(NoticeOf(MakeMessage(kEvent, "", "receiver")), kEvent);
  Use(common + "allow = " + kMe + "publish 0x2DA05\n");
  EXPECT_EQ(NoticeOf(MakeMessage(kEvent, "", "receiver")), 0u);
}

TEST_F(MsgsvrAccessTest, RemovesTheBodyFileAndTheDescriptorOfWhatItRefuses) {
  StartWithOperator();
  Use("allow = " + kMe + "control *\nallow = " + kMe + "send 0x4FFF to *\n");
  const std::string file = MakeFile();
  EXPECT_TRUE(IsNotice(sender_.Ask(MakeFileMessage(kType, "receiver", file)), kType));
  EXPECT_FALSE(Exists(file));
  sender_.SendDescriptor(1);
  EXPECT_TRUE(LogHolds("descriptor dropped: its latest message had no local receiver"));
  EXPECT_EQ(Received(receiver_, "receiver"), std::vector<uint32_t>());
}

TEST_F(MsgsvrAccessTest, RefusesAListOfPatternsForOneOfThem) {
  StartWithOperator();
  Use("allow = " + kMe + "control *\ndeny = any serve /api/admin\nallow = any all\n");
  for (const char *list : {"/web|/api/admin", "/web||", "/api", "/api/a*", "**"}) {
    EXPECT_EQ(NoticeOf(MakeRequest(ZOR_MSG_RESTFUL_REGISTER, list)), ZOR_MSG_RESTFUL_REGISTER) << list;
  }
  EXPECT_EQ(NoticeOf(Restful("/web", "x")), ZOR_MSG_RESTFUL_REQUEST) << "nobody serves it";
  EXPECT_EQ(NoticeOf(MakeRequest(ZOR_MSG_RESTFUL_REGISTER, "/web|/api/user")), 0u);
}

TEST_F(MsgsvrAccessTest, GivesControlToWhoMayHaveIt) {
  StartWithOperator();
  const auto result = [this](uint32_t type) { return sender_.Ask(MakeRequest(type)).header.data; };
  Use("allow = " + kMe + "control CONTROL_ACCESS_RELOAD\n");
  EXPECT_EQ(result(ZOR_MSG_CONTROL_LIST), ZOR_CONTROL_REFUSED);
  EXPECT_EQ(result(ZOR_MSG_CONTROL_LAST), ZOR_CONTROL_REFUSED) << "unknown or not";
  EXPECT_EQ(result(ZOR_MSG_CONTROL_GAPS), ZOR_CONTROL_OK) << "a daemon's own affair";
  EXPECT_TRUE(LogHolds("control CONTROL_LIST refused to sender"));
  EXPECT_EQ(Reload("mode = observe\n").header.data, ZOR_CONTROL_OK);
  EXPECT_EQ(result(ZOR_MSG_CONTROL_LIST), ZOR_CONTROL_OK);
  if (::geteuid() != 0) return;
  ::chmod(root_.Path("").c_str(), 0755);
  ::chmod(RealPath(ZOR_PATH_MSGSVR).c_str(), 0777);
  for (const auto &[rules, expected] : {std::pair("mode = observe\n", ZOR_CONTROL_REFUSED),  // as without rules
                                        std::pair("allow = any own *\nallow = any control *\n", ZOR_CONTROL_OK)}) {
    ASSERT_EQ(Reload(rules).header.data, ZOR_CONTROL_OK);
    Child other = Child::Function([&, wanted = expected] {
      if (::setuid(12345) != 0) return 1;
      return Client("other").Ask(MakeRequest(ZOR_MSG_CONTROL_LIST)).header.data == wanted ? 0 : 2;
    });
    EXPECT_EQ(other.Wait(), 0) << rules;
  }
}

TEST_F(MsgsvrAccessTest, AMistakeLeavesTheRulesThatAreInForce) {
  StartWithOperator();
  const std::string rules = "allow = " + kMe + "control *\ndeny = any send 0x1234 to *\nallow = any all\n";
  Use(rules);
  const std::string mistake = RealPath("/etc/zor/access.d/50.conf") + ":1: ";
  const Message reply = Reload("allow = any fly\n" + rules);
  EXPECT_EQ(reply.header.data, ZOR_CONTROL_UNCHANGED);
  EXPECT_THAT(reply.body, HasSubstr(mistake));
  const Message restart = operator_.Ask(MakeRequest(ZOR_MSG_CONTROL_RESTART));
  EXPECT_EQ(restart.header.data, ZOR_CONTROL_UNCHANGED);
  EXPECT_THAT(restart.body, HasSubstr(mistake));
  EXPECT_EQ(NoticeOf(MakeMessage(kType, "", "receiver")), kType);
  EXPECT_EQ(NoticeOf(MakeMessage(0x4000, "", "receiver")), 0u);
  Child second = Child::Program({program_, "--settings", root_.Path("/settings")});
  EXPECT_EQ(second.Wait(), 3) << "it does not start";
  EXPECT_TRUE(LogHolds("msgsvr: " + mistake));
}

TEST_F(MsgsvrAccessTest, KnowsItsClientsAfterAHandOverAndACrash) {
  const std::string self = access::EscapeWord(std::filesystem::read_symlink("/proc/self/exe").string());
  WriteRules("deny = any send 0x1234 to *\nallow = " + kMe + "exe:" + self + " send * to *\nallow = " + kMe +
             "exe:" + self + " own *\nallow = " + kMe + "exe:" + self + " control *\n");
  std::ofstream(root_.Path("/settings")) << "";
  server_.emplace(Child::Program({program_, "--keeper", "--settings", root_.Path("/settings")}));
  ASSERT_TRUE(server_->WaitForOutput("listening")) << log_.Text();
  sender_ = Client("sender");
  receiver_ = Client("receiver");
  operator_ = Client("operator");
  const auto check = [&](const char *when) {
    EXPECT_EQ(NoticeOf(MakeMessage(kType, "", "receiver")), kType) << when;
    EXPECT_EQ(NoticeOf(MakeMessage(0x4000, "", "receiver")), 0u) << when;
    EXPECT_EQ(Received(receiver_, "receiver"), std::vector<uint32_t>{0x4000}) << when;
  };
  const auto pid = [&] {
    const daemon::Json list(cJSON_Parse(Control(ZOR_MSG_CONTROL_LIST).c_str()));
    return static_cast<pid_t>(cJSON_GetObjectItem(cJSON_GetObjectItem(list.get(), "server"), "pid")->valueint);
  };
  check("at first");
  ASSERT_EQ(operator_.Ask(MakeRequest(ZOR_MSG_CONTROL_RESTART)).header.data, ZOR_CONTROL_OK);
  check("handed over");
  const pid_t crashing = pid();
  ::kill(crashing, SIGKILL);
  EXPECT_TRUE(WaitUntil([&] { return pid() != crashing; }));
  check("restarted");
}

}  // namespace
}  // namespace zor::test
