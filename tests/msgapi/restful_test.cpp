#include <gmock/gmock.h>
#include <zor/msg.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "support/capture.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

using testing::HasSubstr;

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

// Dispatches a request as the server would forward it, with "asker" as its sender.
struct Request {
  Request(const std::string &prefix, const std::string &name, const char *data = "", uint32_t length = 4)
      : msg(ZOR_MSG_BuildRestfulReqMsg(1, 2, prefix.c_str(), name.c_str(), data, length)) {
    msg->data = 5;
    msg->sequence = 42;
    std::memcpy(msg->source, "asker", 6);
  }
  ZOR_MSG_RESTFUL_HEAD &body() { return *reinterpret_cast<ZOR_MSG_RESTFUL_HEAD *>(msg.get() + 1); }
  void Dispatch() { ZOR_MSG_DefaultMsgProc(msg.get(), 0); }
  Block msg;
};

class Restful : public testing::Test {
 protected:
  // The reply to a request; empty without one.
  std::string ReplyTo(Request request) {
    request.Dispatch();
    return bus_.peer.NothingArrived() ? "" : bus_.peer.ReceiveMessage()->Bytes();
  }

  TempRoot root_;
  LoopbackBus bus_;
};

TEST_F(Restful, RepliesToAllThreeRequestTypesWithTheTextIfThereIsOne) {
  ASSERT_EQ(ZOR_MSG_RegRestfulProcs("/api", kTable), ZOR_OK);
  EXPECT_EQ(bus_.peer.ReceiveMessage()->Bytes(), MakeMessage(0x109, "tester", "", 0, std::string("/api\0", 5)).Bytes());
  for (const uint32_t type : {ZOR_MSG_RESTFUL_REQUEST_A, ZOR_MSG_RESTFUL_REQUEST, ZOR_MSG_RESTFUL_REQUEST_B}) {
    for (const std::string &text : {std::string("text\0", 5), std::string()}) {
      Request request("/api", text.empty() ? "silent" : "echo", "text");
      request.msg->type = type;
      EXPECT_EQ(ReplyTo(std::move(request)), MakeMessage(type, "tester", "asker", 5, text, 42).Bytes());
    }
  }
  Capture output;
  EXPECT_EQ(ReplyTo({"/api", "fail"}), "");
  EXPECT_THAT(output.Text(), HasSubstr("restful proc error 77.\n"));
}

TEST_F(Restful, IgnoresUnknownNamesAndHostileBodies) {
  static const ZOR_MSG_RESTFUL_ENTRY more[] = {{"more", Echo}, {nullptr, nullptr}};
  ASSERT_EQ(ZOR_MSG_RegRestfulProcs("/api", kTable), ZOR_OK);
  ASSERT_EQ(ZOR_MSG_RegRestfulProcs("/api", more), ZOR_OK);
  ASSERT_EQ(ZOR_MSG_RegRestfulProcs("/more", more), ZOR_OK);
  for (int each = 0; each < 3; ++each) ASSERT_TRUE(bus_.peer.ReceiveMessage());
  EXPECT_NE(ReplyTo({"/more", "more"}), "");
  EXPECT_EQ(ReplyTo({"/api", "more"}), "") << "the first registration of a prefix decides";
  EXPECT_EQ(ReplyTo({"/other", "echo"}), "");
  EXPECT_EQ(ReplyTo({"/api", "unknown"}), "");
  EXPECT_EQ(ReplyTo({"/api", "hole"}), "");
  for (const uint32_t length : {0u, 1u, 72u, 136u}) {
    Request request("/api", "echo");
    request.msg->bodyLength = length;
    request.msg.reset(ZOR_MSG_Dup(request.msg.get()));  // a block that ends with the body
    EXPECT_EQ(ReplyTo(std::move(request)), "") << length;
  }
  for (char(ZOR_MSG_RESTFUL_HEAD::*field)[ZOR_MSG_RESTFUL_NAME_SIZE] :
       {&ZOR_MSG_RESTFUL_HEAD::prefix, &ZOR_MSG_RESTFUL_HEAD::name}) {
    Request request("/api", "echo");
    std::memset(request.body().*field, 'n', ZOR_MSG_RESTFUL_NAME_SIZE);
    EXPECT_EQ(ReplyTo(std::move(request)), "");
  }
}

TEST_F(Restful, AnnouncesEveryNameWhenExpandedEachCutTo127CharactersAndAsManyAsFit) {
  ASSERT_EQ(ZOR_MSG_RegRestfulProcsEx("/api", kTable, ""), ZOR_OK);
  EXPECT_EQ(bus_.peer.ReceiveMessage()->body, std::string("/api/echo|/api/silent|/api/fail|/api/hole") + '\0');

  const std::string longName(200, 'n');
  std::vector<ZOR_MSG_RESTFUL_ENTRY> table(40, {longName.c_str(), Echo});
  table.push_back({nullptr, nullptr});
  ASSERT_EQ(ZOR_MSG_RegRestfulProcsEx("/p", table.data(), ""), ZOR_OK);
  const std::string file = root_.Path(bus_.peer.ReceiveMessage()->body.c_str());  // so long that it travels in a file
  std::string expected;
  for (int each = 0; each < 31; ++each) expected += "/p/" + std::string(124, 'n') + '|';
  EXPECT_EQ(zor::test::ContentOf(file), expected + '\0');
}

TEST(PathPattern, Matches) {
  const struct {
    const char *patterns;
    std::vector<const char *> match, miss;
  } cases[] = {
      {"/api/*|/dev/**", {"/dev/a/b", "/api/a", "/api/"}, {"/api/a/b", "/dev"}},
      {"/a?c", {"/abc", "/a/c"}, {"/ac", "/abcd"}},
      {"", {""}, {"/"}},
      {"?", {"/"}, {""}},
      {"/a||/b", {"/a", "", "/b"}, {"/a||/b"}},
      {"/*/x|*?*b", {"/a/x", "ab/cb"}, {"/a/b/x"}},
      {"/**/x", {"/a/b/x"}, {"/x"}},
      {"***", {"a/b/c", ""}, {}},
      {"**a*", {"x/ya"}, {"x/ya/", nullptr}},
  };
  for (const auto &each : cases) {
    for (const char *path : each.match) EXPECT_EQ(ZOR_UTIL_MatchPrefixPath(each.patterns, path), 1u) << path;
    for (const char *path : each.miss) EXPECT_EQ(ZOR_UTIL_MatchPrefixPath(each.patterns, path), 0u) << each.patterns;
  }
  EXPECT_EQ(ZOR_UTIL_MatchPrefixPath(nullptr, "/a"), 0u);
}

// What a pattern means, in as few words as possible.
bool Backtracks(std::string_view pattern, std::string_view path) {
  if (pattern.empty()) return path.empty();
  if (pattern.front() != '*') {
    return !path.empty() && (pattern.front() == '?' || pattern.front() == path.front()) &&
           Backtracks(pattern.substr(1), path.substr(1));
  }
  const bool any = pattern.starts_with("**");
  const std::size_t run = any ? path.size() : std::min(path.find('/'), path.size());
  for (std::size_t length = 0; length <= run; ++length) {
    if (Backtracks(pattern.substr(any ? 2 : 1), path.substr(length))) return true;
  }
  return false;
}

TEST(PathPattern, MatchesWhatBacktrackingWouldFind) {
  std::mt19937 random(1);
  const auto text = [&](std::string_view characters, std::size_t length) {
    std::string result;
    for (std::size_t each = random() % length; each > 0; --each) result += characters[random() % characters.size()];
    return result;
  };
  int matches = 0;
  for (int round = 0; round < 5000; ++round) {
    std::string pattern = text("ab/*?*", 9), path = text("ab/", 9);
    if (round % 2 == 0) {  // positions behind a multiple of the word size
      const std::string start(58 + random() % 8, 'a');
      pattern.insert(0, round % 4 == 0 ? start : "*");
      path.insert(0, start);
    }
    const bool expected = Backtracks(pattern, path);
    matches += expected;
    ASSERT_EQ(ZOR_UTIL_MatchPrefixPath(pattern.c_str(), path.c_str()), expected) << pattern << ' ' << path;
  }
  EXPECT_GT(matches, 100);
}

TEST(PathPattern, MatchesInBoundedTimeWhereBacktrackingWouldNotEnd) {
  std::string pattern;
  for (int each = 0; each < 200; ++each) pattern += each % 2 == 0 ? "*a" : "**a";
  EXPECT_EQ(ZOR_UTIL_MatchPrefixPath((pattern + "b").c_str(), std::string(2000, 'a').c_str()), 0u);
  EXPECT_EQ(ZOR_UTIL_MatchPrefixPath(pattern.c_str(), std::string(2000, 'a').c_str()), 1u);
}

}  // namespace
}  // namespace zor::test
