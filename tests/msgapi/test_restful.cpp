#include <gmock/gmock.h>
#include <zor/msg.h>
#include <zor/platform/file.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/scripted_server.h"
#include "support/temp_root.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using zor::test::Capture;
using zor::test::LoopbackBus;

uint32_t Echo(void *body, char **replyText) {
  *replyText = strdup(static_cast<const char *>(body) + ZOR_MSG_RESTFUL_HEAD_SIZE);
  return 0;
}

uint32_t Silent(void *, char **) {
  return 0;
}

uint32_t Fail(void *, char **replyText) {
  *replyText = strdup("never sent");
  return 0x77;
}

const ZOR_MSG_RESTFUL_ENTRY kTable[] = {
    {"echo", Echo}, {"silent", Silent}, {"fail", Fail}, {"hole", nullptr}, {nullptr, nullptr}};

// A request as the server forwards it: the block that the builder makes, from "asker".
std::vector<char> Request(uint32_t type, const char *prefix, const char *name, const char *data) {
  ZOR_MSG_HEAD *built = ZOR_MSG_BuildRestfulReqMsg(1, 2, prefix, name, data, static_cast<uint32_t>(std::strlen(data)));
  built->type = type;
  built->data = 5;
  built->sequence = 42;
  std::memcpy(built->source, "asker", 6);
  const auto *bytes = static_cast<const char *>(static_cast<const void *>(built));
  std::vector<char> block(bytes, bytes + ZOR_MSG_HEAD_SIZE + built->bodyLength);
  std::free(built);
  return block;
}

void Dispatch(std::vector<char> block) {
  ZOR_MSG_DefaultMsgProc(static_cast<ZOR_MSG_HEAD *>(static_cast<void *>(block.data())), 0);
}

class RegisteredRestful : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(ZOR_MSG_RegRestfulProcs("/api", kTable), ZOR_OK);
    const auto announcement = bus.peer.ReceiveMessage();
    ASSERT_TRUE(announcement);
    EXPECT_EQ(announcement->header.type, ZOR_MSG_RESTFUL_REGISTER);
    EXPECT_STREQ(announcement->header.destination, "");
    EXPECT_EQ(announcement->body, std::string("/api\0", 5));
  }

  zor::test::TempRoot root;
  LoopbackBus bus;
};

TEST_F(RegisteredRestful, AnswersAllThreeRequestTypesWithTheTextIfThereIsOne) {
  for (const uint32_t type : {ZOR_MSG_RESTFUL_REQUEST_A, ZOR_MSG_RESTFUL_REQUEST, ZOR_MSG_RESTFUL_REQUEST_B}) {
    Dispatch(Request(type, "/api", "echo", "hello"));
    const auto reply = bus.peer.ReceiveMessage();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->header.type, type);
    EXPECT_STREQ(reply->header.destination, "asker");
    EXPECT_EQ(reply->header.data, 5u);
    EXPECT_EQ(reply->header.sequence, 42u);
    EXPECT_EQ(reply->body, std::string("hello\0", 6));
    EXPECT_TRUE(bus.peer.NothingArrived());
  }
  Dispatch(Request(ZOR_MSG_RESTFUL_REQUEST, "/api", "silent", ""));
  const auto reply = bus.peer.ReceiveMessage();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->header.data, 5u);
  EXPECT_EQ(reply->body, "");
}

TEST_F(RegisteredRestful, LogsAFailedProcedureAndDoesNotAnswer) {
  Capture output;
  Dispatch(Request(ZOR_MSG_RESTFUL_REQUEST, "/api", "fail", ""));
  EXPECT_TRUE(bus.peer.NothingArrived());
  EXPECT_THAT(output.Text(), HasSubstr("restful proc error 77.\n"));
}

TEST_F(RegisteredRestful, TheFirstRegistrationOfAPrefixDecides) {
  static const ZOR_MSG_RESTFUL_ENTRY more[] = {{"more", Echo}, {nullptr, nullptr}};
  ASSERT_EQ(ZOR_MSG_RegRestfulProcs("/api", more), ZOR_OK);
  ASSERT_EQ(ZOR_MSG_RegRestfulProcs("/more", more), ZOR_OK);
  for (int each = 0; each < 2; ++each) ASSERT_TRUE(bus.peer.ReceiveMessage());
  Dispatch(Request(ZOR_MSG_RESTFUL_REQUEST, "/api", "more", "x"));
  EXPECT_TRUE(bus.peer.NothingArrived());
  Dispatch(Request(ZOR_MSG_RESTFUL_REQUEST, "/more", "more", "x"));
  EXPECT_TRUE(bus.peer.ReceiveMessage());
  EXPECT_TRUE(bus.peer.NothingArrived());  // registered once, so answered once
}

TEST_F(RegisteredRestful, IgnoresUnknownNamesAndHostileBodies) {
  Dispatch(Request(ZOR_MSG_RESTFUL_REQUEST, "/other", "echo", ""));
  Dispatch(Request(ZOR_MSG_RESTFUL_REQUEST, "/api", "unknown", ""));
  Dispatch(Request(ZOR_MSG_RESTFUL_REQUEST, "/api", "hole", ""));
  for (const uint32_t length : {0u, 1u, 72u, 136u}) {
    std::vector<char> block = Request(ZOR_MSG_RESTFUL_REQUEST, "/api", "echo", "");
    block.resize(ZOR_MSG_HEAD_SIZE + length);
    std::memcpy(block.data() + offsetof(ZOR_MSG_HEAD, bodyLength), &length, sizeof length);
    Dispatch(block);
  }
  for (const std::size_t field : {offsetof(ZOR_MSG_RESTFUL_HEAD, prefix), offsetof(ZOR_MSG_RESTFUL_HEAD, name)}) {
    std::vector<char> block = Request(ZOR_MSG_RESTFUL_REQUEST, "/api", "echo", "");
    std::memset(block.data() + ZOR_MSG_HEAD_SIZE + field, 'n', ZOR_MSG_RESTFUL_NAME_SIZE);
    Dispatch(block);
  }
  EXPECT_TRUE(bus.peer.NothingArrived());
}

TEST(RestfulRegistration, AnnouncesEveryNameWhenExpandedEachCutTo127CharactersAndAsManyAsFit) {
  zor::test::TempRoot root;
  LoopbackBus bus;
  ASSERT_EQ(ZOR_MSG_RegRestfulProcsEx("/api", kTable, ""), ZOR_OK);
  auto announcement = bus.peer.ReceiveMessage();
  ASSERT_TRUE(announcement);
  EXPECT_EQ(announcement->body, std::string("/api/echo|/api/silent|/api/fail|/api/hole") + '\0');

  const std::string longName(200, 'n');
  std::vector<ZOR_MSG_RESTFUL_ENTRY> table(40, {longName.c_str(), Echo});
  table.push_back({nullptr, nullptr});
  ASSERT_EQ(ZOR_MSG_RegRestfulProcsEx("/p", table.data(), ""), ZOR_OK);
  announcement = bus.peer.ReceiveMessage();  // so long that it travels in a file
  ASSERT_TRUE(announcement);
  void *list = nullptr;
  uint32_t length = 0;
  ASSERT_EQ(ZOR_UTIL_ReadFileToBuf(root.Path(announcement->body.c_str()).c_str(), &list, &length), 0u);
  EXPECT_EQ(length, 31 * 128 + 1u);
  EXPECT_THAT(static_cast<char *>(list), StartsWith("/p/" + std::string(124, 'n') + "|/p/"));
  std::free(list);
}

TEST(RestfulRegistration, RegistersNothingForBadArgumentsOrWhenTheAnnouncementFails) {
  EXPECT_EQ(ZOR_MSG_RegRestfulProcs(nullptr, kTable), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_MSG_RegRestfulProcs("/api", nullptr), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_MSG_RegRestfulProcs("/api", kTable), ZOR_E_NOT_CONNECTED);
  LoopbackBus bus;
  Dispatch(Request(ZOR_MSG_RESTFUL_REQUEST, "/api", "echo", "x"));
  EXPECT_TRUE(bus.peer.NothingArrived());
}

TEST(RestfulRequest, CutsNamesToTheirFieldsAndTextAtItsEnd) {
  const std::string longName(80, 'n');
  const char unterminated[3] = {'a', 'b', 'c'};
  ZOR_MSG_HEAD *msg = ZOR_MSG_BuildRestfulReqMsg(1, 2, longName.c_str(), nullptr, unterminated, 3);
  ASSERT_NE(msg, nullptr);
  EXPECT_EQ(msg->type, ZOR_MSG_RESTFUL_REQUEST);
  EXPECT_EQ(msg->bodyLength, 140u);
  const auto *body = static_cast<const ZOR_MSG_RESTFUL_HEAD *>(ZOR_MSG_GetMsgByHead(msg));
  EXPECT_EQ(body->word1, 2u);
  EXPECT_EQ(body->prefix, longName.substr(0, 63));
  EXPECT_STREQ(body->name, "");
  EXPECT_STREQ(static_cast<const char *>(static_cast<const void *>(body + 1)), "abc");
  std::free(msg);

  msg = ZOR_MSG_BuildRestfulReqMsg(0, 0, "/p", "n", "ab\0cd", 5);
  ASSERT_NE(msg, nullptr);
  EXPECT_EQ(std::memcmp(static_cast<char *>(ZOR_MSG_GetMsgByHead(msg)) + 136, "ab\0\0\0\0", 6), 0);
  std::free(msg);
}

TEST(RestfulRequest, RefusesSizesThatWrapOrExceedTheAllocationLimit) {
  for (const uint32_t length : {ZOR_ALLOC_MAX - 176, 0xFFFFFF4Eu, 0xFFFFFF4Fu, 0xFFFFFF50u, UINT32_MAX}) {
    EXPECT_EQ(ZOR_MSG_BuildRestfulReqMsg(0, 0, "/p", "n", nullptr, length), nullptr) << length;
  }
  for (const uint32_t length : {ZOR_ALLOC_MAX, 0xFFFFFFD8u, UINT32_MAX}) {
    EXPECT_EQ(ZOR_MSG_SendRestfulResponseMsg("x", 1, "", length, 0, 0), ZOR_E_NO_MEMORY) << length;
  }
  EXPECT_EQ(ZOR_MSG_SendRestfulResponseMsg("x", 1, nullptr, 0, 0, 0), ZOR_E_ARGUMENT);
}

TEST(PathPattern, Matches) {
  const struct {
    const char *patterns, *path;
    uint32_t matches;
  } cases[] = {
      {"/api/*|/dev/**", "/dev/a/b", 1},
      {"/api/*|/dev/**", "/api/a", 1},
      {"/api/*", "/api/a/b", 0},
      {"/api/*", "/api/", 1},
      {"/api/**", "/api/", 1},
      {"/a?c", "/abc", 1},
      {"/a?c", "/a/c", 1},
      {"/a?c", "/ac", 0},
      {"?", "", 0},
      {"", "", 1},
      {"", "/", 0},
      {"/a|", "", 1},
      {"|/a", "/a", 1},
      {"/a||/b", "", 1},
      {"/a|/b", "/a|/b", 0},
      {"/*/x", "/a/x", 1},
      {"/*/x", "/a/b/x", 0},
      {"/**/x", "/a/b/x", 1},
      {"/**/x", "/x", 0},
      {"*?*b", "ab/cb", 1},
      {"***", "a/b/c", 1},
      {"**a*", "x/ya/", 0},
      {"/abc", "/ab", 0},
      {"/ab", "/abc", 0},
      {nullptr, "/a", 0},
      {"/a", nullptr, 0},
  };
  for (const auto &each : cases) {
    EXPECT_EQ(ZOR_UTIL_MatchPrefixPath(each.patterns, each.path), each.matches)
        << (each.patterns ? each.patterns : "null") << " on " << (each.path ? each.path : "null");
  }
}

TEST(PathPattern, MatchesInBoundedTimeWhereBacktrackingWouldNotEnd) {
  std::string pattern;
  for (int each = 0; each < 200; ++each) pattern += each % 2 == 0 ? "*a" : "**a";
  EXPECT_EQ(ZOR_UTIL_MatchPrefixPath((pattern + "b").c_str(), std::string(2000, 'a').c_str()), 0u);
  EXPECT_EQ(ZOR_UTIL_MatchPrefixPath(pattern.c_str(), std::string(2000, 'a').c_str()), 1u);
}

}  // namespace
