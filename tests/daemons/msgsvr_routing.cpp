// Where messages go, and the notice when they go nowhere.
#include <csignal>
#include <vector>

#include "msgsvr_fixture.h"

namespace zor::test {
namespace {

Message Restful(const std::string &prefix, const std::string &name) {
  std::string body(ZOR_MSG_RESTFUL_HEAD_SIZE + 1, '\0');
  body.replace(8, prefix.size(), prefix);
  body.replace(72, name.size(), name);
  return MakeMessage(ZOR_MSG_RESTFUL_REQUEST, "", "", 0, body);
}

TEST_F(MsgsvrTest, AnswersForAnAbsentDaemonWithANotice) {
  Start();
  const WireClient client = Client("client");
  const Message notice = client.Ask(MakeMessage(kType | 0x00700000u, "", "nobody", 3, "body", 21));
  EXPECT_TRUE(IsNotice(notice, kType));
  EXPECT_EQ(notice.header.sequence, 21u);
  EXPECT_EQ(NameOf(notice.header.destination), "client");
  client.Send(MakeMessage(ZOR_MSG_SEND_FAILED_NOTICE, "", "nobody"));
  client.Send(MakeMessage(ZOR_MSG_SEND_FAILED_NOTICE, "", ""));
  Settle(client);  // a notice is never answered with a notice
}

TEST_F(MsgsvrTest, RoutesRequestsWithoutDestinationByTheirType) {
  Start();
  const WireClient client = Client("client");
  const std::vector<uint32_t> configuration = {0x5001, 0x5009, 0x500F, 0x5025, 0x502B,  0x5033,
                                               0x5035, 0x503F, 0x5040, 0x504D, 0x26E00, 0x26E10};
  const WireClient cms = Client("cms");
  const WireClient lctrl = Client("lctrl");
  for (const uint32_t type : configuration) {
    client.Send(MakeMessage(type, "", ""));
    EXPECT_EQ(cms.Next().header.type, type);
  }
  client.Send(MakeMessage(0x2CF01, "", ""));
  EXPECT_EQ(lctrl.Next().header.type, 0x2CF01u);
  EXPECT_TRUE(IsNotice(client.Ask(MakeMessage(0x9999, "", "")), 0x9999));
}

TEST_F(MsgsvrTest, PrefersTheRoutesOfItsSettings) {
  StartOwn("route.0x5009 = store\nroute.0x9990-0x9999 = store\nroute.0x500F =\n");
  if (IsSkipped()) return;
  const WireClient client = Client("client");
  const WireClient cms = Client("cms");
  const WireClient store = Client("store");
  for (const uint32_t type : {0x5009u, 0x9990u, 0x9999u}) {
    client.Send(MakeMessage(type, "", ""));
    EXPECT_EQ(store.Next().header.type, type);
  }
  EXPECT_TRUE(IsNotice(client.Ask(MakeMessage(0x500F, "", "")), 0x500F));
  EXPECT_TRUE(cms.NothingArrived());
}

TEST_F(MsgsvrTest, RoutesRestfulRequestsByThePathOrThePrefixAlone) {
  Start();
  const WireClient client = Client("client");
  const WireClient first = Client("first");
  const WireClient second = Client("second");
  const std::string list("/api/a*/get|/api/exact", 23);
  first.Send(MakeMessage(ZOR_MSG_RESTFUL_REGISTER, "", "", 0, list));
  Settle(first);
  second.Send(MakeMessage(ZOR_MSG_RESTFUL_REGISTER, "", "", 0, std::string("/api/**\0", 8)));
  Settle(second);
  const struct {
    const char *prefix, *name;
    const WireClient &target;
  } cases[] = {{"/api/abc", "get", first}, {"/api/exact", "anything", first}, {"/api/other", "get", second}};
  for (const auto &[prefix, name, target] : cases) {
    client.Send(Restful(prefix, name));
    EXPECT_EQ(target.Next().header.type, ZOR_MSG_RESTFUL_REQUEST) << prefix;
  }
  EXPECT_TRUE(IsNotice(client.Ask(Restful("/none", "get")), ZOR_MSG_RESTFUL_REQUEST));
  EXPECT_TRUE(IsNotice(client.Ask(Restful("/api/exact", std::string(64, 'x'))), ZOR_MSG_RESTFUL_REQUEST));
  Message cut = Restful("/api/exact", "get");
  cut.body.resize(70);
  cut.header.bodyLength = 70;
  EXPECT_TRUE(IsNotice(client.Ask(cut), ZOR_MSG_RESTFUL_REQUEST));
}

TEST_F(MsgsvrTest, PutsFramesTogetherHoweverTheyAreTorn) {
  Start();
  const WireClient sender = Client("sender");
  const WireClient receiver = Client("receiver");
  std::string stream;
  std::string expected;
  for (uint32_t i = 0; i < 20; ++i) {
    stream += MakeMessage(kType, "sender", i % 3 == 0 ? "absent" : "receiver", i, std::string(i * 17, 'b')).Bytes();
    if (i % 3 != 0) expected += MakeMessage(kType, "sender", "receiver", i, std::string(i * 17, 'b')).Bytes();
  }
  for (const size_t piece : {size_t{1}, size_t{39}, size_t{41}, stream.size()}) {
    for (size_t at = 0; at < stream.size(); at += piece) sender.Send(stream.substr(at, piece));
    EXPECT_TRUE(receiver.Receive(expected.size()) == expected) << piece;
  }
}

TEST_F(MsgsvrTest, HoldsAFastSenderBackInsteadOfCuttingItsReaderOff) {
  Start();
  const WireClient sender = Client("sender");
  const WireClient receiver = Client("receiver");
  constexpr uint32_t kCount = 30000;
  Child flood = Child::Function([&] {
    std::string stream;
    for (uint32_t i = 0; i < kCount; ++i)
      stream += MakeMessage(kType, "", "receiver", i, std::string(i % 200, 'b')).Bytes();
    sender.Send(stream);
    return 0;
  });
  uint32_t received = 0;
  while (received < kCount && receiver.Next().header.data == received) ++received;
  EXPECT_EQ(received, kCount) << "every message arrives, in order, though reading is slower than sending";
}

TEST_F(MsgsvrTest, HandlesWhatAClientSentBeforeItLeft) {
  Start();
  const WireClient receiver = Client("receiver");
  {
    const WireClient sender = Client("sender");
    if (server_) server_->Signal(SIGSTOP);  // so that it finds the messages and the end at once
    for (uint32_t i = 0; i < 3; ++i) sender.Send(MakeMessage(kType, "", "receiver", i));
  }
  if (server_) server_->Signal(SIGCONT);
  for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(receiver.Next().header.data, i);
  EXPECT_TRUE(WaitUntilGone(receiver, "sender"));
}

TEST_F(MsgsvrTest, ReleasesEverybodyWhoWaitsAtABarrier) {
  Start();
  const WireClient poster = Client("poster");
  const WireClient waiters[] = {Client("one"), Client("two")};
  for (const WireClient &waiter : waiters) {
    waiter.Send(MakeMessage(ZOR_MSG_SYNC_WAIT, "", "", 0, "barrier", 100));
    Settle(waiter);
  }
  poster.Send(MakeMessage(ZOR_MSG_SYNC_POST, "", "", 0, "other"));
  Settle(poster);
  EXPECT_TRUE(waiters[0].NothingArrived());
  poster.Send(MakeMessage(ZOR_MSG_SYNC_POST, "", "", 0, "barrier"));
  for (const WireClient &waiter : waiters) {
    const Message reply = waiter.Next();
    EXPECT_EQ(reply.header.type, ZOR_MSG_SYNC_WAIT);
    EXPECT_EQ(reply.header.sequence, 100u);
  }
}

TEST_F(MsgsvrTest, RemembersAPostThatComesFirstForOneWait) {
  Start();
  const WireClient poster = Client("poster");
  const WireClient waiter = Client("waiter");
  const std::string longName = "name_that_is_cut";  // a post carries it whole, a wait cut to a name
  const Message post = MakeMessage(ZOR_MSG_SYNC_POST, "", "", 0, longName + '\0');
  Message wait = MakeMessage(ZOR_MSG_SYNC_WAIT, "", "", 0, longName.substr(0, 11) + '\0', 1);
  poster.Send(post);
  poster.Send(post);
  Settle(poster);
  EXPECT_EQ(waiter.Ask(wait).header.sequence, 1u);
  for (const uint32_t sequence : {2u, 3u}) {  // the first of them has been given up by its sender
    wait.header.sequence = sequence;
    waiter.Send(wait);
    Settle(waiter);
  }
  poster.Send(post);
  EXPECT_EQ(waiter.Next().header.sequence, 3u);
  Settle(waiter);
}

TEST_F(MsgsvrTest, ForgetsWhatADaemonThatHasLeftWaitedForAndServed) {
  Start();
  const WireClient client = Client("client");
  {
    const WireClient leaver = Client("leaver");
    leaver.Send(MakeMessage(ZOR_MSG_SYNC_WAIT, "", "", 0, "barrier"));
    leaver.Send(MakeMessage(ZOR_MSG_RESTFUL_REGISTER, "", "", 0, "/api"));
    Settle(leaver);
  }
  ASSERT_TRUE(WaitUntilGone(client, "leaver"));
  EXPECT_TRUE(IsNotice(client.Ask(Restful("/api", "get")), ZOR_MSG_RESTFUL_REQUEST));
  client.Send(MakeMessage(ZOR_MSG_SYNC_POST, "", "", 0, "barrier"));
  EXPECT_EQ(client.Ask(MakeMessage(ZOR_MSG_SYNC_WAIT, "", "", 0, "barrier", 8)).header.sequence, 8u);
}

}  // namespace
}  // namespace zor::test
