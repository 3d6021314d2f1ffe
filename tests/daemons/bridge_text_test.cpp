// What the bridge makes of names, events, records and requests, hostile ones included.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/dmmsg.h>
#include <zor/event.h>
#include <zor/log_wire.h>
#include <zor/msg_wire.h>

#include <nlohmann/json.hpp>

#include "programs/fleet_wire.h"
#include "programs/messages/base64.h"
#include "programs/messages/body.h"
#include "programs/types/book.h"
#include "zorbridge/call_text.h"
#include "zorbridge/event_text.h"
#include "zorbridge/log_text.h"

namespace zor::bridge {
namespace {

using namespace std::string_literals;
using Json = nlohmann::ordered_json;
using testing::HasSubstr;

constexpr uint32_t kJsonEvent = ZOR_EVT_JSON_FIRST;

std::string Repeated(std::string_view text, size_t count) {
  std::string all;
  while (count-- > 0) all += text;
  return all;
}

// As the consumer reads them: strictly.
Json Members(const std::string &members) {
  return Json::parse("{" + members + "}");
}

TEST(FleetTopic, NamesBecomeLevelsAndBack) {
  const std::pair<std::string, std::string> cases[] = {
      {"lan-1_a.B", "lan-1_a.B"},
      {"", "%"},
      {"%", "%25"},
      {"+/#$ ~", "%2B%2F%23%24%20%7E"},
      {"\0\n\x7f"s, "%00%0A%7F"},
      {"\u00fc\u4e2d\U0001f600", "\u00fc\u4e2d\U0001f600"},
      {"\u0085\ufffe\U0001ffff\ufdd0", "%C2%85%EF%BF%BE%F0%9F%BF%BF%EF%B7%90"},
      {"\xff\xc0\xaf\xed\xa0\x80\xe4", "%FF%C0%AF%ED%A0%80%E4"},
      {std::string(128, 'x'), std::string(128, 'x')},
  };
  for (const auto &[name, level] : cases) {
    EXPECT_EQ(fleet::Level(name), level);
    EXPECT_EQ(fleet::NameOf(level), name) << level;
  }
  EXPECT_EQ(fleet::Level(std::string(129, 'x')), std::string(126, 'x') + "%~");
  EXPECT_EQ(fleet::Level(std::string(125, 'x') + "////"), std::string(125, 'x') + "%~") << "no half escape";
  EXPECT_EQ(fleet::Level(std::string(125, 'x') + "\u4e2d\u4e2d"), std::string(125, 'x') + "%~") << "no half character";
  for (const char *level : {"", "a%~", "%2b", "%2", "%41", "a b", "+", "%%", "\xff", "\u0085"}) {
    EXPECT_FALSE(fleet::NameOf(level)) << level;
  }
}

TEST(FleetTopic, OfARequestNamesADaemonAndAType) {
  EXPECT_EQ(fleet::Topic({"call", "a/b", ""}), "call/a%2Fb/%");
  const auto call = fleet::ParseCallTopic("call/a%2Fb/SYNC_WAIT");
  ASSERT_TRUE(call);
  EXPECT_EQ(call->daemon + " " + call->type, "a/b SYNC_WAIT");
  for (const char *topic : {"call", "call/web", "call/web/1/2", "call//1", "call/web/", "event/web/1", "call/web/+"}) {
    EXPECT_FALSE(fleet::ParseCallTopic(topic)) << topic;
  }
}

TEST(EventText, KeepsWhatWasPublishedAndIsAlwaysJson) {
  const std::string module = EventModule(kJsonEvent);
  const std::string deepest = Repeated("[", 100) + Repeated("]", 100);
  const struct {
    std::string body;
    std::string name;
    std::string content;  // the members behind the type
  } cases[] = {
      {R"({"EventType":"up","n":12345678901234567890,"x":1e-9})", "up",
       R"("event":{"EventType":"up","n":12345678901234567890,"x":1e-9})"},
      {"{ \"a\" : \"b \\\" c\\\\\" ,\n\t\"d\":\r[ ] }\0"s, "", R"("event":{"a":"b \" c\\","d":[]})"},
      {R"({"p":{"EventType":"inner"},"EventType":"+/#","q":"last"})", "+/#",
       R"("event":{"p":{"EventType":"inner"},"EventType":"+/#","q":"last"})"},
      {R"([{"EventType":"in a list"}])", "", R"("event":[{"EventType":"in a list"}])"},
      {"{\"EventType\":\"\xff\"}", "\ufffd", "\"event\":{\"EventType\":\"\ufffd\"}"},
      {"\xef\xbb\xbf{}", "", R"("event":{})"},
      {deepest, "", "\"event\":" + deepest},
      {"[" + deepest + "]", "", "\"data\":7,\"base64\":\"" + messages::ToBase64("[" + deepest + "]") + "\""},
      {"{}}", "", R"("data":7,"base64":"e319")"},
      {"", "", R"("data":7,"base64":"")"},
      {"\0\xff"s, "", R"("data":7,"base64":"AP8=")"},
      {"{\"EventType\":\"big\",\"x\":\"" + std::string(8 << 20, 'x') + "\"}", "big", R"("bytes":8388634,"cut":true)"},
      {Repeated("[", 8 << 20), "", R"("bytes":8388608,"cut":true)"},
      {std::string(200 << 10, '\xff'), "", R"("bytes":204800,"cut":true)"},
      {"\"" + std::string(200 << 10, '\xff') + "\"", "", R"("bytes":204802,"cut":true)"},
  };
  for (const auto &each : cases) {
    const EventRecord record = TextOfEvent(kJsonEvent, 7, each.body);
    const std::string head = "\"module\":\"" + module + "\",\"name\":\"" + each.name + "\",\"type\":186881,";
    EXPECT_EQ(record.members, head + each.content) << each.body.substr(0, 80);
    EXPECT_EQ(record.topic, "event/" + fleet::Level(module) + "/" + fleet::Level(each.name));
    EXPECT_EQ(record.group, "event/" + fleet::Level(module));
    EXPECT_NO_THROW(Members(record.members));
  }
  EXPECT_EQ(Members(TextOfEvent(kJsonEvent, 0, R"({"EventType":")" + std::string(9999, 'x') + "\"}").members)["name"],
            std::string(256, 'x'));
}

TEST(EventText, OfItemsIsTheTextThatSubscribersGet) {
  uint32_t type = ZOR_EVT_ITEMS_FIRST;
  while (ZOR_EVT_GetEventModuleNameByEventType(type) == nullptr && type < ZOR_EVT_ITEMS_LAST) ++type;
  const std::string body = messages::EncodeItems({{"EventType", "added"}, {"a b", "\x01"}}, 0);
  const Json event = Members(TextOfEvent(type, 0, body).members)["event"];
  EXPECT_EQ(event.value("EventType", ""), "added");
  EXPECT_EQ(event["Payload"].dump(), R"({"a b":"\u0001"})");
  for (size_t size = 0; size < body.size(); ++size) Members(TextOfEvent(type, 0, body.substr(0, size)).members);
}

TEST(LogText, NamesLevelAndType) {
  const ZOR_LOG_COPY head = {1, ZOR_LOG_SYSTEM << ZOR_LOG_TYPE_SHIFT | ZOR_LOG_WARNING, 0x1A000026};
  const std::string bytes(reinterpret_cast<const char *>(&head), sizeof head);
  const auto copy = ParseLogCopy(bytes + "disk \xff full\0more"s);
  ASSERT_TRUE(copy);
  EXPECT_EQ(TextOfLog(*copy),
            "\"level\":\"warning\",\"type\":\"system\",\"index\":436207654,\"text\":\"disk \ufffd full\"");
  EXPECT_EQ(TextOfLog({0, 0x80000400, 1, ""}), R"("level":"0x0","type":"0x800004","index":1,"text":"")");
  EXPECT_FALSE(ParseLogCopy(bytes.substr(1)));
}

TEST(CallText, BecomesAMessage) {
  std::string problem;
  EXPECT_EQ(ParseCallType("get_process_num", &problem), ZOR_MSG_GET_PROCESS_NUM);
  EXPECT_EQ(ParseCallType("0x705", &problem), ZOR_MSG_GET_PROCESS_NUM);
  EXPECT_FALSE(ParseCallType("a\n", &problem));
  EXPECT_EQ(problem, "unknown message type a\\x0a");

  std::vector<types::Problem> problems;
  auto described = types::ParseTypeFile("f", R"({"schema": 1, "vendor": "v", "namespace": "n", "types": [
    {"type": "0x6901", "name": "A", "kind": "oneway", "encoding": "json", "message": [{"name": "any", "type": "json"}]},
    {"type": "0x6902", "name": "B", "kind": "oneway", "message": [{"name": "any", "type": "json"}]}]})",
                                        types::UnknownMembers::kReport, problems);
  ASSERT_TRUE(described);
  types::TypeBook::Installed().Add(std::move(*described));
  const struct {
    uint32_t type;
    std::string payload;
    uint32_t data;
    std::string body;
  } good[] = {
      {0x6901, R"({"fields":{"any":{"a":["b"]}}})", 0, R"({"any":{"a":["b"]}})"},
      {0x6902, R"({"fields":{"any":"text"}})", 0, "\"text\""},
      {1, "", 0, ""},
      {1, "{}", 0, ""},
      {1, R"({"data":4294967295})", 0xffffffff, ""},
      {1, R"({"base64":"AP8=","data":2})", 2, "\0\xff"s},
      {ZOR_MSG_GET_PROCESS_NUM, R"({"fields":{"daemon":"web"}})", 0, "web\0\0\0\0\0\0\0\0\0"s},
      {0x5025, R"({"fields":{"path":"/\u00fc","user":"0x10"}})", 16, "/\u00fc\0"s},
      {0x5025, R"({"fields":{"user":3}})", 3, ""},
      {ZOR_MSG_DM, R"({"fields":{"items":[{"name":"a","value":"b"},{"name":"c"}]}})", 0,
       messages::EncodeItems({{"a", "b"}, {"c", ""}}, 0)},
      {ZOR_MSG_DM, R"({"fields":{"items":{"sub_type":9,"items":[]}}})", 0, messages::EncodeItems({}, 9)},
  };
  for (const auto &each : good) {
    const auto call = ParseCall(each.type, each.payload, &problem);
    ASSERT_TRUE(call) << each.payload << problem;
    EXPECT_EQ(call->type, each.type);
    EXPECT_EQ(call->data, each.data) << each.payload;
    EXPECT_EQ(call->body, each.body) << each.payload;
  }
}

TEST(CallText, ThatMeansNothingIsRefusedWithTheReason) {
  std::string problem;
  std::string crowd = "{\"\":0";
  for (int i = 0; i < 5000; ++i) crowd += ",\"" + std::to_string(i) + "\":0";
  const struct {
    uint32_t type;
    std::string payload;
    std::string problem;
  } bad[] = {
      {1, "[]", "not a JSON object"},
      {1, "{}{}", "not a JSON object"},
      {1, "\xff", "not a JSON object"},
      {1, Repeated("{\"a\":", 20'000), "not a JSON object"},
      {1, crowd + "}", "not a JSON object"},
      {1, std::string(kMostCallBytes + 1, ' '), "more than 262144 bytes"},
      {1, R"({"dat\n":1})", R"(unknown member "dat\x0a")"},
      {1, R"({"data":-1})", R"("data" is not a number from 0 to 4294967295)"},
      {1, R"({"data":4294967296})", "is not a number"},
      {1, R"({"data":1.5})", "is not a number"},
      {1, R"({"base64":"A"})", "not base64"},
      {1, R"({"base64":"AP8=\u0000"})", "not base64"},
      {1, R"({"base64":"","fields":{}})", "both"},
      {1, R"({"fields":{}})", "type 0x1 has no known fields"},
      {0x5025, R"({"fields":[]})", "is not an object"},
      {0x5025, R"({"fields":{"who":1}})", R"(no field "who"; the type has: user, path)"},
      {0x5025, R"({"fields":{"user":"many"}})", "user is not a 32-bit number"},
      {0x5025, R"({"fields":{"path":1}})", "path is not a text"},
      {0x5025, R"({"fields":{"path":"/a\u0000b"}})", "path contains a NUL"},
      {ZOR_MSG_GET_PROCESS_NUM, R"({"fields":{"daemon":"twelve chars"}})", "more than 11 characters"},
      {ZOR_MSG_DM, R"({"fields":{"items":[{"value":"b"}]}})", "not an object with a name"},
      {ZOR_MSG_DM, R"({"fields":{"items":[{"name":"b","x":1}]}})", R"(unknown member "x")"},
      {ZOR_MSG_DM, R"({"fields":{"items":{"sub_type":-1}}})", R"("sub_type" is not a number)"},
  };
  for (const auto &each : bad) {
    EXPECT_FALSE(ParseCall(each.type, each.payload, &problem)) << each.payload;
    EXPECT_THAT(problem, HasSubstr(each.problem)) << each.payload.substr(0, 80);
  }
}

TEST(CallText, OfAReplyIsJsonWhateverItHolds) {
  const struct {
    uint32_t type;
    std::string body;
    std::string content;
  } cases[] = {
      {ZOR_MSG_GET_PROCESS_NUM, "", R"("fields":{"count":3})"},
      {ZOR_MSG_RESTFUL_REQUEST, "\xff\0"s, "\"fields\":{\"request_data\":3,\"text\":\"\ufffd\"}"},
      {1, "lines\nof text\0"s, R"("text":"lines\nof text")"},
      {1, "\x1b", R"("base64":"Gw==")"},
      {1, "", R"("text":"")"},
      {1, std::string(8 << 20, 'x'), R"("bytes":8388608,"cut":true)"},
      {1, std::string(200 << 10, '\xff'), R"("bytes":204800,"cut":true)"},
  };
  for (const auto &each : cases) {
    EXPECT_EQ(TextOfReply(each.type, 3, each.body), R"("result":"done","data":3,)" + each.content);
  }
  EXPECT_EQ(TextOfFailure(fleet::result::kLate, "\"over\""), R"("result":"late","reason":"\"over\"")");
  EXPECT_EQ(Members(TextOfFailure("busy", std::string(255, 'x') + "\u00fc"))["reason"], std::string(255, 'x'));
}

}  // namespace
}  // namespace zor::bridge
