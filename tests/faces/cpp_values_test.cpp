// The values of the C++ face that need no server.
#include <gtest/gtest.h>
#include <zor/cpp/blur.hpp>
#include <zor/cpp/charset.hpp>
#include <zor/cpp/dns.hpp>
#include <zor/cpp/json.hpp>
#include <zor/cpp/url.hpp>

#include <string>

namespace zor {
namespace {

TEST(CppJsonTest, TextsAreReadAndWritten) {
  const struct {
    const char *text;
    const char *compact;  // null: malformed
  } cases[] = {
      {R"( {"a" : [1, -2.5e3, true, null, "x"], "b": {}} )", R"({"a":[1,-2500,true,null,"x"],"b":{}})"},
      {R"("\u00e9\ud83d\ude00\n\"\\\/\u0001")", "\"\u00e9\U0001F600\\n\\\"\\\\/\\u0001\""},
      {R"("\ud800x")", "\"\uFFFDx\""},
      {"9223372036854775807", "9223372036854775807"},
      {"-9223372036854775808", "-9223372036854775808"},
      {"9223372036854775808", "9.223372036854776e+18"},
      {"0.1", "0.1"},
      {"01", nullptr},
      {"1.", nullptr},
      {"[1,]", nullptr},
      {"{\"a\":1", nullptr},
      {"{a:1}", nullptr},
      {"\"\n\"", nullptr},
      {"\"\\x\"", nullptr},
      {"tru", nullptr},
      {"1 2", nullptr},
      {"", nullptr},
  };
  for (const auto &each : cases) {
    const Result<Json> json = Json::try_parse(each.text);
    ASSERT_EQ(json.has_value(), each.compact != nullptr) << each.text;
    if (json) {
      EXPECT_EQ(json->dump(), each.compact) << each.text;
    }
  }
  EXPECT_FALSE(Json::try_parse(std::string(100000, '['))) << "too deep";
  std::string zeros = "[0";
  for (int count = 1; count < 100000; ++count) zeros += ",0";
  EXPECT_FALSE(Json::try_parse(zeros + "]")) << "more values than a peer may make of few bytes";
  Json json;
  json.set("a", Json().push(1)).set("a", 2);
  EXPECT_EQ(json.dump(), R"({"a":2})");
  EXPECT_EQ(json["b"]["c"].at(3).text("none"), "none");
}

TEST(CppValuesTest, WrapTheHelpersOfTheLibrary) {
  EXPECT_EQ(blur::mac("from 00:11:22:33:44:55"), "from **:**:**:**:**:**");
  EXPECT_EQ(charset::convert("h\xe4", "iso8859-1", "utf8"), "h\u00e4");
  EXPECT_EQ(charset::convert("x", "nonsense", "utf8"), std::nullopt);
  EXPECT_EQ(cl::to_utf8(u"h\u00e4").value(), "h\u00e4");
  EXPECT_EQ(cl::to_ucs2("h\u00e4").value(), u"h\u00e4");
  EXPECT_FALSE(cl::to_ucs2("\x80"));
  EXPECT_EQ(cl::to_hex("AZ"), "415A");
  EXPECT_EQ(cl::from_hex("415A7"), (Bytes{'A', 'Z'}));
  EXPECT_EQ(cl::to_number("fF", 16).value(), 255u);
  EXPECT_FALSE(cl::to_number("12x"));
  EXPECT_EQ(dns::try_address_of("4.3.2.1.in-addr.arpa").value(), "1.2.3.4");
  EXPECT_FALSE(dns::try_address_of("example"));
}

TEST(CppValuesTest, UrlsAreTakenApart) {
  const Url url = Url::parse("http://[::1]:81/a b?c");
  EXPECT_EQ(url.protocol, ZOR_URL_HTTP);
  EXPECT_EQ(url.host, "::1");
  EXPECT_EQ(url.port, 81u);
  EXPECT_EQ(url.path, "/a%20b?c");
  EXPECT_EQ(Url::parse("https://host").path, "");
  EXPECT_EQ(Url::try_parse("gopher://host").error().kind(), ErrorKind::kArgument);
  EXPECT_EQ(Url::try_decode_path(Url::try_encode_path("/mnt/usb1/a").value()).value(), "/mnt/usb1/a");
  EXPECT_FALSE(Url::try_decode_path("no token"));
}

TEST(CppValuesTest, DnsMessagesAreReadAndRepliedTo) {
  const std::string_view query("\x12\x34\1\0\0\1\0\0\0\0\0\0\1a\7example\0\0\1\0\1", 27);
  const dns::Message message(query);
  EXPECT_EQ(message.id(), 0x1234u);
  EXPECT_EQ(message.try_question().value().name, "a.example");
  const dns::Message reply = message.try_reply({"", 1, 1, 60, {1, 2, 3, 4}}).value();
  EXPECT_FALSE(reply.is_error());
  const auto records = reply.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].name, "a.example");
  EXPECT_EQ(records[0].data, (Bytes{1, 2, 3, 4}));
  EXPECT_TRUE(message.try_error_reply(3).value().is_error());
  // Whatever is cut off, nothing beyond the end is read.
  for (std::size_t length = 0; length < reply.bytes().size(); ++length) {
    const dns::Message cut(reply.bytes().substr(0, length));
    EXPECT_TRUE(cut.records().empty()) << length;
    EXPECT_EQ(cut.try_question().has_value(), length >= query.size()) << length;
  }
}

}  // namespace
}  // namespace zor
