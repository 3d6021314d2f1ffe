// Event subscriptions and publication.
#include "msgsvr_fixture.h"

namespace zor::test {
namespace {

constexpr uint32_t kEvent = 0x2DA05;
constexpr uint32_t kOtherEvent = 0x2DA65;
constexpr uint32_t kAllEvents = 0x2DA00;

void Subscribe(const WireClient &client, uint32_t event, const std::string &body = "") {
  client.Send(MakeMessage(ZOR_MSG_SUBSCRIBE_EVENT, "", "", event, body));
  Settle(client);
}

void Unsubscribe(const WireClient &client, uint32_t event, const std::string &body = "") {
  client.Send(MakeMessage(ZOR_MSG_UNSUBSCRIBE_EVENT, "", "", event, body));
  Settle(client);
}

// Publishes and waits until every copy is on its way.
void Publish(const WireClient &client, uint32_t event, const std::string &destination = "") {
  client.Send(MakeMessage(event, "", destination, 0, "{}"));
  Settle(client);
}

TEST_F(MsgsvrTest, SendsOneCopyOfAnEventToEachSubscriber) {
  Start();
  const WireClient publisher = Client("publisher");
  const WireClient single = Client("single");
  const WireClient all = Client("all");
  const WireClient both = Client("both");
  const WireClient none = Client("none");
  Subscribe(single, kEvent & 0xff);  // the last byte names the event as well
  Subscribe(single, 0x12345);        // and this names none
  Subscribe(all, kAllEvents);
  Subscribe(both, kEvent);
  Subscribe(both, kAllEvents);
  Publish(publisher, kEvent);
  for (const WireClient *subscriber : {&single, &all, &both}) {
    const Message event = subscriber->Next();
    EXPECT_EQ(event.header.type, kEvent);
    EXPECT_EQ(event.body, "{}");
    EXPECT_EQ(NameOf(event.header.source), "publisher");
    EXPECT_TRUE(subscriber->NothingArrived());
  }
  EXPECT_TRUE(none.NothingArrived());
  Publish(publisher, kOtherEvent, "mic");
  EXPECT_EQ(all.Next().header.type, kOtherEvent);
  EXPECT_TRUE(single.NothingArrived());
}

TEST_F(MsgsvrTest, EndsASubscription) {
  Start();
  const WireClient publisher = Client("publisher");
  const WireClient client = Client("client");
  Subscribe(client, kEvent);
  Subscribe(client, kOtherEvent);
  Unsubscribe(client, kEvent);
  Publish(publisher, kEvent);
  Publish(publisher, kOtherEvent);
  EXPECT_EQ(client.Next().header.type, kOtherEvent);
  Unsubscribe(client, kAllEvents);
  Publish(publisher, kOtherEvent);
  EXPECT_TRUE(client.NothingArrived());
}

TEST_F(MsgsvrTest, KeepsASubscriptionForAnotherDaemonUntilThatIsStopped) {
  Start();
  const WireClient starter = Client("starter");
  Subscribe(starter, kEvent, NameBody("dyn"));
  for (const bool stopped : {false, true}) {
    WireClient dyn = Client("dyn");
    Publish(starter, kEvent);
    EXPECT_EQ(dyn.Next().header.type, kEvent);
    if (stopped) starter.Send(MakeMessage(ZOR_MSG_SAFE_EXIT, "", "", 0, NameBody("dyn")));
    starter.Send(MakeMessage(kType, "", "dyn"));
    EXPECT_EQ(dyn.Next().header.type, kType) << "until it leaves it stays reachable";
    dyn.Close();
    ASSERT_TRUE(WaitUntilGone(starter, "dyn"));
  }
  const WireClient dyn = Client("dyn");
  Publish(starter, kEvent);
  EXPECT_TRUE(dyn.NothingArrived());
  EXPECT_TRUE(starter.NothingArrived());
  Subscribe(starter, kEvent, NameBody("dyn"));
  Unsubscribe(starter, kEvent, NameBody("dyn"));
  Publish(starter, kEvent);
  EXPECT_TRUE(dyn.NothingArrived());
}

}  // namespace
}  // namespace zor::test
