// Details that golden tests do not show: widths, hostile bytes and the layout of bodies.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/config_wire.h>
#include <zor/control_wire.h>
#include <zor/log_wire.h>
#include <zor/status.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "programs/messages/body.h"
#include "programs/messages/hex.h"
#include "programs/messages/invalid.h"
#include "programs/messages/message_types.h"
#include "programs/messages/nearest.h"
#include "programs/messages/status_text.h"
#include "programs/types/own_types.h"
#include "support/in_memory.h"
#include "zorctl/table.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;

types::Shape RequestOf(uint32_t type) {
  return messages::FindType(type)->requestShape();
}

types::Shape ReplyOf(uint32_t type) {
  return messages::FindType(type)->replyShape();
}

// The shape of fields in the notation of the generated table.
struct Record {
  explicit Record(std::string_view shape) : fields(types::ParseShape(shape)) {}
  operator types::Shape() const { return {fields, types::Encoding::kRecord}; }

  std::vector<types::Field> fields;
};

TEST(Text, IsEscapedWhereItWouldNotStayInItsPlace) {
  EXPECT_EQ(Escape("a\\b \u4e2d\u00e9"), "a\\\\b \u4e2d\u00e9");
  EXPECT_EQ(Escape("\x1b[1m\n\x7f"), "\\x1b[1m\\x0a\\x7f");
  EXPECT_EQ(Escape("\xc2\x9b"), "\\xc2\\x9b") << "a control character in two bytes";
  EXPECT_EQ(Escape("\u202e"), "\\xe2\\x80\\xae") << "turns the direction of writing";
  EXPECT_EQ(Escape("\xc0\xaf\xed\xa0\x80\xff\xe4\xb8"), "\\xc0\\xaf\\xed\\xa0\\x80\\xff\\xe4\\xb8") << "not UTF-8";
}

TEST(Text, IsCutByColumnsNotByBytes) {
  EXPECT_EQ(Width("a\u4e2de\u0301"), 4u);
  EXPECT_EQ(Cut("abcdef", 6), "abcdef");
  EXPECT_EQ(Cut("abcdef", 5), "abcd\u2026");
  EXPECT_EQ(Cut("\u4e2d\u4e2d\u4e2d", 4), "\u4e2d\u2026") << "half a character does not fit";
  EXPECT_EQ(Cut("abc", 0), "");
}

TEST(Table, AlignsItsColumnsAndCutsTheLines) {
  Table table({{"NAME"}, {"IN", Table::Align::kRight}, {"REST"}});
  table.Add({"a\tb", "7", ""});
  table.Add({"c", "1234", "text"});
  EXPECT_THAT(table.Lines(std::string::npos), ElementsAre("NAME      IN  REST",  //
                                                          "a\\x09b     7",       //
                                                          "c       1234  text"));
  EXPECT_THAT(table.Lines(15), ElementsAre("NAME      IN  \u2026", "a\\x09b     7", "c       1234  \u2026"));
}

TEST(Table, LeavesOutWhatIsNeededLeastBeforeItCuts) {
  Table table({{"NAME"}, {"PID", Table::Align::kRight, 1}, {"SINCE", Table::Align::kLeft, 2}, {"OUT"}});
  table.Add({"lamp", "12", "2026-11-21", "7"});
  EXPECT_THAT(table.Lines(26), ElementsAre("NAME  PID  SINCE       OUT", "lamp   12  2026-11-21  7"));
  EXPECT_THAT(table.Lines(25), ElementsAre("NAME  PID  OUT", "lamp   12  7"));
  EXPECT_THAT(table.Lines(13), ElementsAre("NAME  OUT", "lamp  7"));
  EXPECT_THAT(table.Lines(5), ElementsAre("NAME\u2026", "lamp\u2026"));
}

TEST(Body, HasTheSizeOfTheRecordThatItStandsFor) {
  const auto sizeOf = [](types::Shape shape, const char *field) {
    return messages::Encode(shape, {{field, ""}}).body.size();
  };
  EXPECT_EQ(sizeOf(RequestOf(ZOR_LOG_MSG_RECORD), "parameters"), sizeof(ZOR_LOG_RECORD));
  EXPECT_EQ(sizeOf(RequestOf(ZOR_LOG_MSG_QUERY), "path"), sizeof(ZOR_LOG_QUERY));
  EXPECT_EQ(sizeOf(RequestOf(ZOR_LOG_MSG_SET_SERVER), "name"), sizeof(ZOR_LOG_SERVERS));
  EXPECT_EQ(sizeOf(RequestOf(ZOR_MSG_CONTROL_MONITOR), "daemon"), sizeof(ZOR_CONTROL_FILTER));
  EXPECT_EQ(sizeOf(RequestOf(ZOR_MSG_CONTROL_COPY), "receiver"), sizeof(ZOR_CONTROL_COPY));
  EXPECT_EQ(sizeOf(RequestOf(ZOR_MSG_RESTFUL_REQUEST), "prefix"), ZOR_MSG_RESTFUL_HEAD_SIZE + 1) << "the text's NUL";
}

TEST(Body, IsBuiltFromFieldsAndTakenApartAgain) {
  const messages::Content content =
      messages::Encode(Record("data:user u16:port u32:mode text8:name bytes2:key text:path"),
                       {{"path", "/x"}, {"user", "0x10"}, {"port", "513"}, {"name", "abc"}, {"key", "ff"}});
  EXPECT_EQ(content.data, 16u);
  EXPECT_EQ(content.body, test::InMemory(uint16_t{513}) + "\0\0\0\0abc\0\0\0\0\0\xff\0/x\0"s);
  EXPECT_EQ(messages::Decode(Record("u16:port u32:mode text8:name bytes2:key text:path"), 0, content.body).dump(),
            R"({"port":513,"mode":0,"name":"abc","key":"ff00","path":"/x"})");
  EXPECT_EQ(messages::Encode(Record("data:user u32:mode"), {{"user", "1"}}).body, "") << "nothing is said of the body";
}

TEST(Body, IsRefusedWhenAValueDoesNotFit) {
  for (const auto &[field, value] : {std::pair{"port", "65536"},
                                     {"mode", "4294967296"},
                                     {"name", "12345678"},
                                     {"key", "010203"},
                                     {"key", "0g"},
                                     {"nothing", ""}}) {
    EXPECT_THROW(messages::Encode(Record("u16:port u32:mode text8:name bytes2:key"), {{field, value}}),
                 messages::Invalid)
        << field << value;
  }
}

TEST(Body, IsTakenApartAsFarAsItGoes) {
  EXPECT_EQ(messages::Decode(ReplyOf(ZOR_MSG_GET_PROCESS_NUM), 3, "").dump(), R"({"count":3})");
  EXPECT_EQ(messages::Decode(Record("u32:a u32:b"), 0, test::InMemory(1u) + "\x02").dump(), R"({"a":1,"b":"02"})");
  EXPECT_EQ(messages::Decode(Record("u16:a"), 0, test::InMemory(uint16_t{1}) + "more").dump(),
            R"({"a":1,"rest":"6d6f7265"})");
  EXPECT_EQ(messages::Decode(Record("json:j"), 0, "{\"x\":").dump(), R"({"j":"{\"x\":"})") << "not JSON after all";
  EXPECT_EQ(messages::Decode(Record("items:i"), 0, "no items").dump(), R"({"i":{"text":"no items"}})");
  EXPECT_EQ(messages::DecodeUnknown("lines\nof text\0"s).dump(), R"({"text":"lines\nof text"})");
  EXPECT_EQ(messages::DecodeUnknown("\x1b[1m").dump(), R"({"hex":"1b5b316d"})");
}

TEST(Body, OfAManagementMessageShowsItsItems) {
  const std::string body = messages::EncodeItems({{"device", "lamp"}, {"esc", "\x1b"}}, 7);
  EXPECT_EQ(messages::Decode(RequestOf(0x209), 0, body).dump(),
            R"({"items":{"error_code":0,"sub_type":7,"items":[{"name":"device","value":"lamp"},)"
            R"({"name":"esc","value":"0x1b00"}]}})");
}

TEST(Status, HasATextForEachMacroOfItsHeader) {
  std::ifstream header(ZOR_STATUS_HEADER);
  size_t macros = 0;
  for (std::string line; std::getline(header, line);) {
    std::istringstream words(line);
    std::string define, name, number;
    words >> define >> name >> number;
    if (define != "#define" || !name.starts_with("ZOR_E_")) continue;
    ++macros;
    const auto status = static_cast<uint32_t>(std::stoul(number.substr(sizeof "UINT32_C"), nullptr, 0));
    EXPECT_NE(messages::StatusText(status), "") << name;
  }
  EXPECT_GT(macros, 0u);
  EXPECT_EQ(messages::StatusText(ZOR_OK), "");
}

TEST(MistypedWord, IsCompletedOrCorrectedWhereThatIsUnambiguous) {
  const std::vector<std::string> verbs = {"list", "listen", "monitor", "notify", "send", "--timeout"};
  for (const auto &[word, meant] : {std::pair{"lsit", "list"},
                                    {"LIST", "list"},
                                    {"mon", "monitor"},
                                    {"liste", "listen"},
                                    {"sned", "send"},
                                    {"--tiemout", "--timeout"},
                                    {"x", ""},
                                    {"li", ""},
                                    {"", ""},
                                    {"nothing", ""}}) {
    EXPECT_EQ(messages::Nearest(word, verbs), meant) << word;
  }
}

TEST(HexDump, ShowsOffsetsBytesAndCharacters) {
  EXPECT_EQ(messages::HexDump("0123456789abcdef\n"),
            "0000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  0123456789abcdef\n"
            "0010  0a                                               .\n");
}

}  // namespace
}  // namespace zor::ctl
