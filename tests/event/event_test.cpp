#include <cjson/cJSON.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/event.h>
#include <zor/msg.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/dm_bytes.h"
#include "support/failing_alloc.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr uint32_t kLan = 0x2DA66;
constexpr uint32_t kQuorel = 0x2DA05;

std::string Item(const std::string &name, const std::string &value) {
  return DmItem(name + '\0', value + '\0');
}

// What callbacks saw, in order.
std::vector<std::string> seen;

template <char kName>
uint32_t Note(uint32_t, const char *body, uint32_t bodyLength) {
  EXPECT_EQ(std::strlen(body), bodyLength);
  seen.push_back(std::string(1, kName) + body);
  return 0;
}

uint32_t SubscribeAgainAndFail(uint32_t type, const char *, uint32_t) {
  seen.emplace_back("again");
  EXPECT_EQ(ZOR_EVT_SubscribeSingelEventCallBack(type, SubscribeAgainAndFail), 0u);
  return 0x1f;
}

class Events : public testing::Test {
 protected:
  // Dispatches the message as if it had arrived over the bus.
  void Arrive(uint32_t type, const std::string &body) {
    bus_.peer.Send(MakeMessage(type, "publisher", "tester", 0, body));
    ZOR_MSG_HEAD *msg = nullptr;
    ASSERT_EQ(ZOR_MSG_Recv(g_stMsgCtx.socketFd, &msg, 3000), ZOR_OK);
    ZOR_MSG_DefaultMsgProc(msg);
    std::free(msg);
  }
  void ArriveWithItems(uint32_t type, const std::string &items) { Arrive(type, DmHead(24 + items.size(), 0) + items); }
  // The wire form of the items of the next published message.
  std::string PublishedItems() {
    const auto sent = bus_.peer.ReceiveMessage();
    EXPECT_EQ(sent->header.type, kLan);
    EXPECT_STREQ(sent->header.destination, "mic");
    return sent->body.substr(24);
  }

  TempRoot root_;
  LoopbackBus bus_;
};

TEST_F(Events, ArePublishedWithTheItemsThatHaveNameAndValue) {
  const std::string name = Item("EventType", "up");
  EXPECT_EQ(ZOR_EVT_PublishEvent(kLan, "up", "port", nullptr), ZOR_OK);
  EXPECT_EQ(PublishedItems(), name);

  std::string a = "a", b = "b", huge(ZOR_ALLOC_MAX, 'x');
  ZOR_NVPAIR last = {nullptr, b.data(), a.data()}, nameless = {&last, nullptr, a.data()};
  ZOR_NVPAIR first = {&nameless, a.data(), b.data()}, tooLong = {&first, a.data(), huge.data()};
  EXPECT_EQ(ZOR_EVT_PublishEventWithNVPair(kLan, "up", &first), ZOR_OK);
  EXPECT_EQ(PublishedItems(), name + Item("a", "b") + Item("b", "a"));
  EXPECT_EQ(ZOR_EVT_PublishEventWithNVPair(kLan, "up", &tooLong), ZOR_E_DM_ARGUMENT);
  EXPECT_EQ(ZOR_EVT_PublishEvent(kLan, "up", "huge", huge.c_str()), ZOR_E_DM_NO_MEMORY);
  EXPECT_TRUE(bus_.peer.NothingArrived());
}

TEST_F(Events, ArePublishedAsCompactJsonWithACopyOfThePayload) {
  cJSON *payload = cJSON_Parse("{\"n\":[1,\"\xff\"]}");
  EXPECT_EQ(ZOR_EVT_PublishEventWithJson("quorel", "up", kQuorel, payload), ZOR_OK);
  cJSON_Delete(payload);
  const auto sent = bus_.peer.ReceiveMessage();
  EXPECT_EQ(sent->header.type, kQuorel);
  EXPECT_STREQ(sent->header.destination, "");
  EXPECT_THAT(sent->body, MatchesRegex("\\{\"Method\":\"notify\",\"Module\":\"quorel\",\"EventType\":\"up\","
                                       "\"Timestamp\":\"[^\"]+Z\",\"Payload\":\\{\"n\":\\[1,\"\xff\"\\]\\}\\}"));
}

// Items before the event's name count; a second name starts a new event but keeps the items; items without a name,
// value or NUL do no harm.
TEST_F(Events, WithItemsBecomeFormattedJson) {
  ZOR_EVT_SubscribeAllEventCallBack(Note<'*'>);
  ArriveWithItems(kLan, DmItem({"a", 2}, "1") + Item("EventType", "old") + DmItem("", "nameless") +
                            DmItem("valueless", "") + DmItem("EventType", "new") + DmItem("b", {"2\0x", 3}));
  EXPECT_THAT(seen, ElementsAre(MatchesRegex(
                        "\\*\\{\n\t\"Method\":\t\"notify\",\n\t\"Module\":\t\"lan\",\n\t\"EventType\":\t\"new\",\n\t"
                        "\"Timestamp\":\t\"[^\"]+Z\",\n\t\"Payload\":\t\\{\n\t\t\"a\":\t\"1\",\n\t\t\"b\":\t\"2\"\n\t"
                        "\\}\n\\}")));
}

// A JSON text that lacks an item, or tells another event type, would be worse than none.
TEST_F(Events, GiveTheirWholeContentOrNoneWithoutMemory) {
  const std::string items = Item("EventType", "old") + Item("a", "1") + Item("EventType", "new") + Item("b", "2");
  bus_.peer.Send(MakeMessage(kLan, "publisher", "tester", 0, DmHead(24 + items.size(), 0) + items));
  ZOR_MSG_HEAD *msg = nullptr;
  ASSERT_EQ(ZOR_MSG_Recv(g_stMsgCtx.socketFd, &msg, 3000), ZOR_OK);
  char *text = nullptr;
  EXPECT_EQ(ZOR_EVT_GetEventContent(msg, &text, nullptr), ZOR_OK) << "the C library has its own memory now";
  unsigned tried = 0;
  for (bool failed = true; failed; ++tried) {
    uint32_t status;
    {
      const FailingAllocations allocations(tried, 1);
      status = ZOR_EVT_GetEventContent(msg, &text, nullptr);
      failed = allocations.Failed();
    }
    EXPECT_EQ(status, failed ? ZOR_EVT_FAILED : ZOR_OK) << tried;
    EXPECT_EQ(text == nullptr, failed) << tried;
  }
  EXPECT_GT(tried, 20u);
  EXPECT_THAT(text, HasSubstr("\"EventType\":\t\"new\""));
  EXPECT_THAT(text, HasSubstr("\t\t\"a\":\t\"1\",\n\t\t\"b\":\t\"2\"\n"));
  std::free(text);
  std::free(msg);
}

TEST_F(Events, ThatGiveNoJsonReachNobody) {
  ZOR_EVT_SubscribeAllEventCallBack(Note<'*'>);
  const std::string name = Item("EventType", "x");
  const std::string item = Item("a", "1");
  ArriveWithItems(kLan, name);
  ArriveWithItems(kLan, item);
  for (const uint32_t type : {0x2DA64u, ZOR_EVT_ALL, 0x2DB00u}) ArriveWithItems(type, name + item);
  for (const char *body : {"{\"Payload\":{}}", ""}) Arrive(kLan, body);
  EXPECT_THAT(seen, IsEmpty());
}

TEST_F(Events, WithJsonReachTheirSubscribersAsTheyCameAndThenTheOneForAll) {
  ZOR_EVT_SubscribeAllEventCallBack(Note<'*'>);
  EXPECT_EQ(ZOR_EVT_SubscribeSingelEventCallBack(kQuorel, Note<'1'>), 0u);
  EXPECT_EQ(ZOR_EVT_SubscribeSingelEventCallBack(0x2DA06, Note<'2'>), 0u);
  EXPECT_EQ(ZOR_EVT_SubscribeSingelEventCallBack(kQuorel, Note<'3'>), 0u);
  EXPECT_EQ(ZOR_EVT_SubscribeSingelEventCallBack(ZOR_EVT_ALL - 1, Note<'4'>), ZOR_EVT_FAILED);
  Arrive(kQuorel, "[\xff");  // content is the publisher's responsibility
  Arrive(0x2DA3F, "");       // no module, no text
  EXPECT_THAT(seen, ElementsAre("1[\xff", "3[\xff", "*[\xff", "*"));
  EXPECT_EQ(ZOR_EVT_SubscribeSingelEventCallBack(0x2DA07, SubscribeAgainAndFail), 0u);
  for (const size_t calls : {1u, 2u}) {
    Capture output;
    seen.clear();
    Arrive(0x2DA07, "{}");
    EXPECT_EQ(seen.size(), calls + 1) << "those that were subscribed when it came, and the one for all";
    EXPECT_EQ(output.Text(),
              calls == 1 ? "Do Event CallBack Error 1f" : "Do Event CallBack Error 1fDo Event CallBack Error 1f");
  }
}

}  // namespace
}  // namespace zor::test
