#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/msg.h>
#include <zor/platform/list.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/dm_bytes.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

using testing::ElementsAre;

// A message on the heap: built here, or arrived with the given body.
struct Dm {
  Dm() { EXPECT_EQ(ZOR_DMMSG_Builder(&handle, "a_name_that_is_too_long", 7), ZOR_OK); }
  explicit Dm(const std::string &body)
      : handle(static_cast<ZOR_DMMSG_HEAD *>(ZOR_MSG_GetMsgBlock(static_cast<uint32_t>(body.size())))) {
    std::memcpy(static_cast<void *>(handle), body.data(), body.size());
    head().type = ZOR_MSG_DM;
    std::memcpy(head().source, "twelve-chars", sizeof head().source);
  }
  ~Dm() { ZOR_DMMSG_Free(handle); }
  Dm(const Dm &) = delete;
  Dm &operator=(const Dm &) = delete;

  ZOR_MSG_HEAD &head() const { return *ZOR_MSG_GetMsgHead(handle); }
  uint32_t Append(const char *name, const std::string &value) {
    return ZOR_DMMSG_AppendItem(&handle, 0, name, value.data(), static_cast<uint32_t>(value.size()));
  }
  // "name=value" of each item, with the name's NUL.
  std::vector<std::string> Items() const {
    std::vector<std::string> items;
    ZOR_DMMSG_ITEM item;
    for (const void *next = nullptr; ZOR_DMMSG_GetItem(handle, &item, &next) == ZOR_OK;) {
      EXPECT_EQ(item.name == nullptr, item.nameLength == 0);
      items.push_back(std::string(item.name, item.nameLength) + '=' +
                      std::string(static_cast<const char *>(item.value), item.valueLength));
    }
    return items;
  }

  ZOR_DMMSG_HEAD *handle = nullptr;
};

class DmMessages : public testing::Test {
 protected:
  TempRoot root_;
  LoopbackBus bus_;
};

TEST_F(DmMessages, TravelWithTheirUsedPartAsOftenAsTheyAreSent) {
  Dm dm;
  EXPECT_EQ(dm.Append("name", {"ab\0c", 4}), ZOR_OK);
  EXPECT_EQ(ZOR_DMMSG_AppendItem(&dm.handle, 3, "", nullptr, 0), ZOR_OK);
  const std::string items = DmItem({"name", 5}, {"ab\0c", 4}) + Words({3, 0, 0});
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ZOR_DMMSG_Send(dm.handle), ZOR_OK);
    const auto sent = bus_.peer.ReceiveMessage();
    EXPECT_EQ(sent->header.type, 0x209u);
    EXPECT_EQ(sent->header.sequence, 0u);
    EXPECT_STREQ(sent->header.destination, "a_name_that");
    EXPECT_EQ(sent->body, DmHead(57, 0) + items);
  }
}

TEST_F(DmMessages, GrowAndMoveWithoutLosingItemsEvenWhenTheValueLiesInThem) {
  Dm dm;
  const std::string value(900, 'a');
  dm.Append(nullptr, value);
  ZOR_DMMSG_ITEM item;
  const void *next = nullptr;
  ASSERT_EQ(ZOR_DMMSG_GetItem(dm.handle, &item, &next), ZOR_OK);
  EXPECT_EQ(ZOR_DMMSG_AppendItem(&dm.handle, 0, "copy", item.value, item.valueLength), ZOR_OK);
  EXPECT_EQ(dm.handle->capacity, 1024u + 917u + 1024u);
  EXPECT_EQ(dm.handle->free, 1000u - 912u + 1024u);
  EXPECT_EQ(ZOR_DMMSG_Send(dm.handle), ZOR_OK);
  EXPECT_EQ(dm.Append(nullptr, "z"), ZOR_OK) << "a sent message has no room";
  EXPECT_THAT(dm.Items(), ElementsAre('=' + value, std::string("copy\0=", 6) + value, "=z"));
}

TEST_F(DmMessages, AreGivenUpWhenAnItemWouldExceedTheAllocationLimit) {
  for (const uint32_t valueLength : {ZOR_ALLOC_MAX, 0xfffffff0u}) {
    const Capture output;
    Dm dm;
    EXPECT_EQ(ZOR_DMMSG_AppendItem(&dm.handle, 0, nullptr, "", valueLength), ZOR_E_DM_NO_MEMORY);
    EXPECT_EQ(dm.Append("later", ""), ZOR_E_DM_ARGUMENT);
    EXPECT_EQ(ZOR_DMMSG_Send(dm.handle), ZOR_E_DM_ARGUMENT);
  }
}

TEST_F(DmMessages, ThatLieAboutTheirLengthsAreReadAndGrownWithinTheirBlock) {
  const std::string item = DmItem({"n", 2}, "vv");
  const struct {
    const char *lie;
    std::string body;
    size_t items;
    uint32_t append;
  } cases[] = {
      {"more free than capacity", DmHead(40, 41) + item, 0, ZOR_E_DM_ARGUMENT},
      {"other magic", Words({1, 40, 0, 5, 0, 7}) + item, 0, ZOR_E_DM_ARGUMENT},
      {"no whole head", DmHead(24, 0).substr(0, 23), 0, ZOR_E_DM_ARGUMENT},
      {"room that did not travel", DmHead(1024, 984) + item, 1, ZOR_OK},
      {"capacity beyond the block", DmHead(2000, 0) + item, 1, ZOR_OK},
      {"value 12 bytes past the end", DmHead(36, 0) + Words({0, 0, 12}), 1, ZOR_OK},
      {"value 13 bytes past the end", DmHead(36, 0) + Words({0, 0, 13}), 0, ZOR_OK},
      {"sum of lengths overflows", DmHead(40, 0) + Words({0, 0xfffffffc, 8, 0}), 0, ZOR_OK},
      {"unused bytes, the last item's head partly behind them", DmHead(1024, 0) + std::string(1000, '\0'), 84, ZOR_OK},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.lie);
    Dm dm(c.body);
    EXPECT_EQ(dm.Items().size(), c.items);
    EXPECT_EQ(dm.Append("new", std::string(100, 'x')), c.append);
  }
  const Dm dm(DmHead(40, 0) + item);
  ZOR_DMMSG_ITEM view;
  for (const int stray : {-1, 23, 40}) {
    const void *iterator = reinterpret_cast<const char *>(dm.handle) + stray;
    EXPECT_EQ(ZOR_DMMSG_GetItem(dm.handle, &view, &iterator), ZOR_E_DM_ARGUMENT);
  }
}

TEST_F(DmMessages, WaitForTheNextMessageOfTheirTypeAndSetOthersAside) {
  const std::pair<std::string, uint32_t> cases[] = {
      {DmHead(24, 0), ZOR_OK}, {DmHead(24, 0, 5), 5}, {std::string(24, 'x'), ZOR_E_DM_BAD_ANSWER}};
  for (const auto &[body, status] : cases) {
    bus_.peer.Send(MakeMessage(ZOR_MSG_SEND_FAILED_NOTICE, "", "tester", ZOR_MSG_DM));
    bus_.peer.Send(MakeMessage(ZOR_MSG_DM, "anyone", "tester", 0, body, 99));
    const Dm dm;
    ZOR_DMMSG_HEAD *reply = dm.handle;
    EXPECT_EQ(ZOR_DMMSG_SyncSend(dm.handle, &reply, 60000), status);
    EXPECT_EQ(reply != nullptr, status == ZOR_OK);
    ZOR_DMMSG_Free(reply);
  }
  EXPECT_EQ(ZOR_UTIL_ListGetCount(&g_stMsgCtx.pending), std::size(cases));
  ZOR_MSG_QueueDestroy(&g_stMsgCtx.pending);
  EXPECT_EQ(ZOR_DMMSG_SyncSend(Dm().handle, nullptr, 20), ZOR_E_TIMEOUT);
}

TEST_F(DmMessages, GetACodeOrItemsInReply) {
  const std::string item = DmItem({"n", 2}, "v");
  const std::pair<uint32_t, std::string> cases[] = {// depends on the free room of the request
                                                    {0, DmHead(1024, 0, 9) + item + std::string(1024 - 39, '\0')},
                                                    {984, DmHead(40, 0, 9) + item + std::string(1, '\0')},
                                                    {1000, DmHead(24, 0, 9)}};
  for (const auto &[requestFree, expected] : cases) {
    const Dm request(DmHead(24, requestFree));
    Dm reply;
    reply.Append("n", "v");
    EXPECT_EQ(ZOR_DMMSG_Reply(request.handle, 9, reply.handle), ZOR_OK);
    const auto sent = bus_.peer.ReceiveMessage();
    EXPECT_STREQ(sent->header.destination, "twelve-char");
    EXPECT_EQ(sent->body, expected);
  }
  Dm reply;
  reply.Append("n", "v");
  EXPECT_EQ(ZOR_DMMSG_Reply(Dm(DmHead(24, 1001)).handle, 9, reply.handle), ZOR_E_DM_ARGUMENT);
  EXPECT_EQ(ZOR_DMMSG_ReplyEx(nullptr, 9, reply.handle), ZOR_OK);
  EXPECT_EQ(bus_.peer.ReceiveMessage()->body, DmHead(1024, 985, 9) + item);
  const Dm request(DmHead(24, 0));
  EXPECT_EQ(ZOR_DMMSG_ReplyRetCode(request.handle, 5), ZOR_OK);
  EXPECT_EQ(bus_.peer.ReceiveMessage()->body, DmHead(24, 0, 5));
  request.head().type = ZOR_MSG_DM + 1;
  EXPECT_EQ(ZOR_DMMSG_ReplyRetCode(request.handle, 5), ZOR_E_DM_ARGUMENT);
}

}  // namespace
}  // namespace zor::test
