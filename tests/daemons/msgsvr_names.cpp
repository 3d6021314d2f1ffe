// Registration and names.
#include <cstring>

#include "msgsvr_fixture.h"

namespace zor::test {
namespace {

TEST_F(MsgsvrTest, GrantsANameOfElevenCharactersAndCopiesTheSequence) {
  Start();
  const WireClient client = Connect();
  const Message reply = client.Ask(MakeMessage(ZOR_MSG_REGISTER_APP, "elevenchars", "", 0, "", 77));
  EXPECT_EQ(reply.header.type, ZOR_MSG_REGISTER_APP);
  EXPECT_EQ(reply.header.sequence, 77u);
  EXPECT_EQ(NameOf(reply.header.destination), "elevenchars");
  EXPECT_EQ(reply.header.data, 0u);
  EXPECT_EQ(reply.body.substr(0, 8), std::string(8, '\0'));
}

TEST_F(MsgsvrTest, GrantsTheEmptyNameForOneThatCannotBeBorne) {
  Start();
  for (const std::string &name : {std::string(), std::string("two words"), std::string("bell\a"),
                                  std::string("caf\xe9"), std::string("twelve_chars")}) {
    const WireClient client = Connect();
    EXPECT_EQ(NameOf(client.Register(name).header.destination), "") << name;
  }
}

TEST_F(MsgsvrTest, EndsAClientThatSendsWithoutAName) {
  Start();
  const WireClient receiver = Client("receiver");
  const WireClient refused = Connect();
  refused.Register("");
  refused.Send(MakeMessage(kType, "liar", "receiver"));
  EXPECT_TRUE(refused.ClosedByOther());
  EXPECT_TRUE(receiver.NothingArrived());
}

TEST_F(MsgsvrTest, ForwardsTheGrantedNameWhateverTheSenderClaims) {
  Start();
  const WireClient sender = Client("sender");
  const WireClient receiver = Client("receiver");
  Message message = MakeMessage(kType | 0xeff00000u, "someoneelse", "receiver", 5, "body", 9);
  message.header.type &= ~ZOR_MSG_BODY_IN_FILE;
  sender.Send(message);
  const Message arrived = receiver.Next();
  EXPECT_EQ(NameOf(arrived.header.source), "sender");
  std::memcpy(message.header.source, arrived.header.source, ZOR_MSG_NAME_SIZE);
  EXPECT_EQ(arrived.Bytes(), message.Bytes()) << "all but the source is passed on as it came";
}

TEST_F(MsgsvrTest, ANameMeansItsOldestProcess) {
  Start();
  const WireClient sender = Client("sender");
  std::optional<WireClient> first = Client("twin");
  const WireClient second = Client("twin");
  sender.Send(MakeMessage(kType, "", "twin", 1));
  EXPECT_EQ(first->Next().header.data, 1u);
  const Message count = MakeMessage(ZOR_MSG_GET_PROCESS_NUM, "", "", 0, NameBody("twin"), 6);
  const Message reply = sender.Ask(count);
  EXPECT_EQ(reply.header.type, ZOR_MSG_GET_PROCESS_NUM);
  EXPECT_EQ(reply.header.sequence, 6u);
  EXPECT_EQ(reply.header.data, 2u);
  first->Close();
  ASSERT_TRUE(WaitUntil([&] { return sender.Ask(count).header.data == 1; }));
  sender.Send(MakeMessage(kType, "", "twin", 2));
  EXPECT_EQ(second.Next().header.data, 2u);
}

TEST_F(MsgsvrTest, SendsTheSettingsOfThatDaemonOrThoseOfAll) {
  StartOwn(
      "report.* = 60\nreport.web = 30\ntrace_output.web = file\ntrace_file_kib.web = 4096\n"
      "trace.web = msg=debug all=info loop=3\ntrace_output.* = 10.0.0.1:5000\n");
  if (IsSkipped()) return;
  struct Settings {
    ZOR_MSG_REGISTER_REPLY reply;
    ZOR_TRACE_SETTINGS_HEAD head;
    ZOR_TRACE_SETTINGS_ENTRY entries[3];
  };
  const std::string web = Connect().Register("web").body;
  Settings settings = {};
  ASSERT_EQ(web.size(), 8u + 48u + 3 * 20u);
  std::memcpy(&settings.reply, web.data(), 8);
  std::memcpy(&settings.head, web.data() + 8, 48);
  std::memcpy(settings.entries, web.data() + 56, 60);
  EXPECT_EQ(settings.reply.reportSwitch, 1u);
  EXPECT_EQ(settings.reply.reportSeconds, 30u);
  EXPECT_EQ(settings.head.outputIndex, 1u);
  EXPECT_EQ(settings.head.fileMaxKiB, 4096u);
  EXPECT_STREQ(settings.head.outputText, "");
  EXPECT_STREQ(settings.entries[0].module, "all") << "comes first, since it makes a daemon forget the others";
  EXPECT_EQ(settings.entries[0].level, 8u);
  EXPECT_STREQ(settings.entries[1].module, "msg");
  EXPECT_EQ(settings.entries[1].level, 16u);
  EXPECT_EQ(settings.entries[2].level, 3u);

  const std::string other = Connect().Register("other").body;
  ASSERT_EQ(other.size(), 8u + 48u);
  std::memcpy(&settings.reply, other.data(), 8);
  std::memcpy(&settings.head, other.data() + 8, 48);
  EXPECT_EQ(settings.reply.reportSeconds, 60u);
  EXPECT_STREQ(settings.head.outputText, "10.0.0.1:5000");
}

}  // namespace
}  // namespace zor::test
