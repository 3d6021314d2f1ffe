// Names, routing, and the notice for undeliverable messages.
#include <zor/msg_head.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "msgsvr_fixture.h"

namespace zor::test {
namespace {

constexpr uint32_t kEvent = 0x2DA05;
constexpr uint32_t kOtherEvent = 0x2DA65;
constexpr uint32_t kAllEvents = 0x2DA00;

void Subscribe(const WireClient &client, uint32_t event, const std::string &name = "") {
  Tell(client, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, name, event));
}

void Unsubscribe(const WireClient &client, uint32_t event, const std::string &name = "") {
  Tell(client, MakeRequest(ZOR_MSG_UNSUBSCRIBE_EVENT, name, event));
}

Message Restful(const std::string &prefix, const std::string &name, size_t size = ZOR_MSG_RESTFUL_HEAD_SIZE + 1) {
  std::string body(ZOR_MSG_RESTFUL_HEAD_SIZE + 1, '\0');
  body.replace(8, prefix.size(), prefix);
  body.replace(72, name.size(), name);
  return MakeRequest(ZOR_MSG_RESTFUL_REQUEST, body.substr(0, size));
}

TEST_F(MsgsvrTest, GrantsNamesThatCanBeBorneAndEndsTheOthersWhenTheySpeak) {
  for (const auto &[name, granted] : {std::pair{"elevenchars", "elevenchars"},
                                      {"", ""},
                                      {"two words", ""},
                                      {"bell\a", ""},
                                      {"caf\xe9", ""},
                                      {"twelve_chars", ""}}) {
    const WireClient client = Connect();
    const Message reply = client.Ask(MakeMessage(ZOR_MSG_REGISTER_APP, name, "", 0, "", 77));
    EXPECT_EQ(reply.header.type, ZOR_MSG_REGISTER_APP);
    EXPECT_EQ(reply.header.sequence, 77u);
    EXPECT_EQ(reply.header.data, 0u);
    EXPECT_EQ(NameOf(reply.header.destination), granted) << name;
    EXPECT_EQ(reply.body.substr(0, 8), std::string(8, '\0'));
    client.Send(MakeMessage(kType, "liar", *granted == '\0' ? "receiver" : "liar"));
    EXPECT_EQ(client.ClosedByOther(), *granted == '\0') << name;
  }
  EXPECT_TRUE(receiver_.NothingArrived());
}

// It cannot know our order before it has been told, and converts nothing in the body of the reply but trace levels.
TEST_F(OwnMsgsvrTest, ADaemonOfTheOtherByteOrderIsGreetedInThatOrderAndThenSpeaksOurs) {
  Start("report.* = 5\ntrace_output.* = file\ntrace_file_kib.* = 3000\ntrace.* = msg=debug\n");
  std::string body = Connect().Register("plain").body;
  for (const auto &[at, size] : {std::pair{0, 4}, {4, 4}, {8, 4}, {16, 8}}) {
    std::reverse(body.begin() + at, body.begin() + at + size);
  }
  const WireClient other = Connect();
  Message request = MakeMessage(ZOR_MSG_REGISTER_APP, "other", "", 0, "", 77);
  ZOR_MSG_HeaderEndianSwap(&request.header);
  other.Send(request);
  ZOR_MSG_HEAD head{};
  other.Receive(sizeof head).copy(reinterpret_cast<char *>(&head), sizeof head);
  ZOR_MSG_HeaderEndianSwap(&head);
  EXPECT_EQ(head.type, ZOR_MSG_REGISTER_APP);
  EXPECT_EQ(head.sequence, 77u);
  EXPECT_NE(head.data, 0u);
  EXPECT_EQ(NameOf(head.destination), "other");
  ASSERT_EQ(head.bodyLength, body.size());
  EXPECT_EQ(other.Receive(body.size()), body);

  other.Send(MakeMessage(kType, "", "receiver", 3, "body", 5));
  const Message received = receiver_.Next();
  EXPECT_EQ(received.header.data, 3u);
  EXPECT_EQ(NameOf(received.header.source), "other");
  const Message again = other.Register("another");
  EXPECT_NE(again.header.data, 0u);
  EXPECT_EQ(again.body, body);
}

TEST_F(MsgsvrTest, ANameMeansItsOldestProcess) {
  WireClient first = Client("twin");
  const WireClient second = Client("twin");
  sender_.Send(MakeMessage(kType, "", "twin", 1));
  EXPECT_EQ(first.Next().header.data, 1u);
  const Message reply = sender_.Ask(MakeCount("twin"));
  EXPECT_EQ(reply.header.type, ZOR_MSG_GET_PROCESS_NUM);
  EXPECT_EQ(reply.header.sequence, 6u);
  EXPECT_EQ(reply.header.data, 2u);
  first.Close();
  AwaitCount(sender_, "twin", 1);
  sender_.Send(MakeMessage(kType, "", "twin", 2));
  EXPECT_EQ(second.Next().header.data, 2u);
}

TEST_F(MsgsvrTest, RepliesForAnAbsentDaemonWithANotice) {
  const Message notice = sender_.Ask(MakeMessage(kType | 0x00700000u, "", "nobody", 3, "body", 21));
  EXPECT_TRUE(IsNotice(notice, kType));
  EXPECT_EQ(notice.header.sequence, 21u);
  EXPECT_EQ(NameOf(notice.header.destination), "sender");
  // A notice never causes another notice.
  for (const char *destination : {"nobody", ""})
    Tell(sender_, MakeMessage(ZOR_MSG_SEND_FAILED_NOTICE, "", destination));
}

TEST_F(OwnMsgsvrTest, RoutesRequestsWithoutDestinationByTheirTypeWithThoseOfItsSettingsFirst) {
  Start("route.0x5009 = receiver\nroute.0x9990-0x9999 = receiver\nroute.0x5040 =\n");
  const WireClient cms = Client("cms");
  const WireClient lctrl = Client("lctrl");
  const struct {
    const WireClient &target;
    std::vector<uint32_t> types;
  } cases[] = {
      {cms, {0x5001, 0x500F, 0x5025, 0x502B, 0x5033, 0x5035, 0x503F, 0x504D, 0x26E00, 0x26E10}},
      {lctrl, {0x2CF01, 0x2CF05}},
      {receiver_, {0x5009, 0x9990, 0x9999}},
      {sender_, {0x5040, 0x999A, 0x502C}},  // without a recipient: it gets the notice
  };
  for (const auto &[target, types] : cases) {
    for (const uint32_t type : types) {
      sender_.Send(MakeRequest(type));
      const Message arrived = target.Next();
      EXPECT_TRUE(&target == &sender_ ? IsNotice(arrived, type) : arrived.header.type == type) << std::hex << type;
    }
  }
}

TEST_F(MsgsvrTest, RoutesRestfulRequestsByThePathOrThePrefixAlone) {
  const WireClient second = Client("second");
  Tell(receiver_, MakeRequest(ZOR_MSG_RESTFUL_REGISTER, "/api/a*/get|/api/exact"));
  Tell(second, MakeRequest(ZOR_MSG_RESTFUL_REGISTER, std::string("/api/**\0", 8)));
  const std::string longest(63, 'x');
  const struct {
    std::string prefix, name;
    const WireClient &target;
  } cases[] = {{"/api/abc", "get", receiver_}, {"/api/exact", longest, receiver_}, {"/api/other", "get", second}};
  for (const auto &[prefix, name, target] : cases) {
    sender_.Send(Restful(prefix, name));
    EXPECT_EQ(target.Next().header.type, ZOR_MSG_RESTFUL_REQUEST) << prefix;
  }
  for (const Message &lost : {Restful("/none", "get"), Restful("/api/exact", longest + "x"),
                              Restful("/api/exact", "get", ZOR_MSG_RESTFUL_HEAD_SIZE - 1)}) {
    EXPECT_TRUE(IsNotice(sender_.Ask(lost), ZOR_MSG_RESTFUL_REQUEST));
  }
}

TEST_F(MsgsvrTest, PassesFramesOnHoweverTheyAreTornWithTheGrantedNameWhateverTheSenderClaims) {
  constexpr uint32_t kOddType = kType | (0xfff00000u & ~ZOR_MSG_BODY_IN_FILE);
  std::string stream;
  std::string expected;
  for (uint32_t i = 0; i < 20; ++i) {
    const bool arrives = i % 3 != 0;
    const std::string body(i * 17, 'b');
    stream += MakeMessage(kOddType, "someoneelse", arrives ? "receiver" : "absent", i, body, 20 - i).Bytes();
    if (arrives) expected += MakeMessage(kOddType, "sender", "receiver", i, body, 20 - i).Bytes();
  }
  for (const size_t piece : {size_t{1}, size_t{39}, size_t{41}, stream.size()}) {
    for (size_t at = 0; at < stream.size(); at += piece) sender_.Send(stream.substr(at, piece));
    EXPECT_TRUE(receiver_.Receive(expected.size()) == expected) << piece;
  }
}

TEST_F(MsgsvrTest, ReleasesThoseWhoWaitAtABarrierAndRemembersAPostThatComesFirst) {
  const std::string longName = "name_that_is_cut";  // a post carries it whole, a wait truncates it
  const Message post = MakeRequest(ZOR_MSG_SYNC_POST, longName);
  const auto wait = [&](uint32_t sequence) {
    return MakeRequest(ZOR_MSG_SYNC_WAIT, longName.substr(0, 11), 0, sequence);
  };
  for (int twice = 0; twice < 2; ++twice) Tell(sender_, post);
  EXPECT_EQ(receiver_.Ask(wait(1)).header.sequence, 1u);
  const WireClient other = Client("other");
  Tell(other, wait(2));
  for (const uint32_t sequence : {3u, 4u}) Tell(receiver_, wait(sequence));  // the sender has given up the first
  Tell(sender_, MakeRequest(ZOR_MSG_SYNC_POST, "another"));
  EXPECT_TRUE(other.NothingArrived());
  Tell(sender_, post);
  EXPECT_EQ(other.Next().header.sequence, 2u);
  const Message released = receiver_.Next();
  EXPECT_EQ(released.header.type, ZOR_MSG_SYNC_WAIT);
  EXPECT_EQ(released.header.sequence, 4u);
  EXPECT_TRUE(receiver_.NothingArrived());
}

TEST_F(MsgsvrTest, SendsOneCopyOfAnEventToEachSubscriberUntilItUnsubscribes) {
  WireClient all = Client("all");
  WireClient both = Client("both");
  Subscribe(receiver_, kEvent & 0xff);  // the last byte selects the event too
  Subscribe(receiver_, 0x12345);        // no such event
  Subscribe(all, kAllEvents);
  Subscribe(both, kEvent);
  Subscribe(both, kAllEvents);
  Tell(sender_, MakeRequest(kEvent, "{}"));
  for (const WireClient *subscriber : {&receiver_, &all, &both}) {
    const Message event = subscriber->Next();
    EXPECT_EQ(event.header.type, kEvent);
    EXPECT_EQ(event.body, "{}");
    EXPECT_EQ(NameOf(event.header.source), "sender");
    EXPECT_TRUE(subscriber->NothingArrived());
  }
  Unsubscribe(both, kAllEvents);
  Unsubscribe(receiver_, kEvent);
  Subscribe(receiver_, kOtherEvent);
  Tell(sender_, MakeRequest(kEvent));
  EXPECT_EQ(all.Next().header.type, kEvent);
  Tell(sender_, MakeMessage(kOtherEvent, "", "mic"));
  for (const WireClient *subscriber : {&receiver_, &all}) EXPECT_EQ(subscriber->Next().header.type, kOtherEvent);
  EXPECT_TRUE(both.NothingArrived());
}

}  // namespace
}  // namespace zor::test
