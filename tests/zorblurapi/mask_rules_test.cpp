// The hand-written patterns beside the expressions that they stand for, on random texts that are almost addresses. A
// longer run: --gtest_shuffle --gtest_repeat=50 tries a million.
#include <gtest/gtest.h>
#include <regex.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "app/zorblurapi/mask_rules.h"

namespace zor {
namespace {

#define H "[0-9A-Fa-f]{1,4}"
#define V4 "([0-9]{1,3}[.]){3}[0-9]{1,3}"
constexpr char kMac[] = "([0-9A-Fa-f]{2}[:-]){5}([0-9A-Fa-f]{2})";
constexpr char kIpv4[] = V4;
constexpr char kUuid[] = "(([0-9A-Fa-f]{4}[-]){3})([0-9A-Fa-f]{12})";
constexpr char kIpv6[] =
    "(" H ":){7}" H "|(" H ":){6}" V4 "|(" H ":){1,7}:|(" H ":){1,6}:" H "|(" H ":){1,5}(:" H "){1,2}|(" H ":){1,4}(:" H
    "){1,3}|(" H ":){1,3}(:" H "){1,4}|(" H ":){1,2}(:" H "){1,5}|" H ":(:" H "){1,6}|:((:" H "){1,7}|:)|::(" H
    ":){0,5}" V4 "|(" H ":){1,5}:" V4 "|(" H ":){1,4}:" H ":" V4 "|(" H ":){1,3}(:" H "){1,2}:" V4 "|(" H ":){1,2}(:" H
    "){1,3}:" V4 "|" H ":(:" H "){1,4}:" V4;
#undef H
#undef V4

void Star(std::string &text, std::size_t from, std::size_t count) {
  const std::size_t end = std::min(from + count, text.size());
  for (; from < end; ++from) text[from] = '*';
}

void StarToTheEnd(std::string &text, std::size_t from, char kept) {
  for (; from < text.size(); ++from) text[from] = text[from] == kept ? kept : '*';
}

// The rules in their order, each for a match at [from, from + length).
struct Rule {
  const char *expression;
  void (*mask)(std::string &text, std::size_t from, std::size_t length);
};

const std::vector<Rule> kRules = {
    {kMac,
     [](std::string &text, std::size_t from, std::size_t) {
       for (const std::size_t at : {3u, 4u, 6u, 7u, 12u, 13u}) text[from + at] = '*';
     }},
    {kIpv4,
     [](std::string &text, std::size_t from, std::size_t) {
       const std::size_t first = text.find('.', from), second = text.find('.', first + 1);
       const std::size_t third = text.find('.', second + 1);
       Star(text, first + 1, second - first - 1);
       Star(text, second + 1, third - second - 1);
     }},
    {kUuid, [](std::string &text, std::size_t from, std::size_t) { Star(text, from + 15, 12); }},
    {kMac, [](std::string &text, std::size_t from, std::size_t) { StarToTheEnd(text, from, ':'); }},
    {kIpv4, [](std::string &text, std::size_t from, std::size_t) { StarToTheEnd(text, from, '.'); }},
    {kIpv6, Star},
};

class Expressions {
 public:
  Expressions() {
    for (std::size_t row = 0; row < kRules.size(); ++row) {
      EXPECT_EQ(::regcomp(&compiled_[row], kRules[row].expression, REG_EXTENDED), 0);
    }
  }
  Expressions(const Expressions &) = delete;
  Expressions &operator=(const Expressions &) = delete;
  ~Expressions() {
    for (regex_t &each : compiled_) ::regfree(&each);
  }

  std::string Mask(unsigned masks, std::string text) const {
    for (std::size_t row = 0; row < kRules.size(); ++row) {
      regmatch_t match;
      std::size_t at = 0;
      while ((masks >> row & 1u) != 0 && ::regexec(&compiled_[row], text.c_str() + at, 1, &match, REG_NOTBOL) == 0) {
        kRules[row].mask(text, at + static_cast<std::size_t>(match.rm_so),
                         static_cast<std::size_t>(match.rm_eo - match.rm_so));
        at += static_cast<std::size_t>(match.rm_eo);
      }
    }
    return text;
  }

 private:
  std::array<regex_t, 6> compiled_;
};

class NearMatches {
 public:
  explicit NearMatches(unsigned seed) : random_(seed) {}

  unsigned Below(std::size_t limit) { return static_cast<unsigned>(random_() % limit); }

  // Addresses with some characters changed, apart or one against the other; or characters of addresses in any order.
  std::string Text() {
    if (Below(4) == 0) return Scattered(":::..-012afF", Below(60));
    std::string text;
    for (unsigned count = 1 + Below(4); count > 0; --count) {
      text += Scattered("xyz 0:.-\xff", Below(3) * Below(4)) + Changed(std::string(Pick(kAddresses)));
    }
    return text;
  }

 private:
  static constexpr auto kAddresses = std::to_array<std::string_view>(
      {"00:11:22:33:44:55", "aB-cD-eF-01-23-45", "192.168.1.20", "1.2.3.4", "1234-5678-9abc-0123456789ab",
       "1:2:3:4:5:6:7:8", "1:2:3:4:5:6:1.2.3.4", "::", "fe80::1", "2001:db8::ff00:42:8329",
       "1:2:3:4:5:6:7::", "::2:3:4:5:6:7:8", "1::8", "::ffff:1.2.3.4", "1:2:3::5:6:7:8", "1:2:3:4:5::1.2.3.4",
       "1::3:4:5:6:1.2.3.4", "a:b::c:1.2.3.4"});

  template <class List>
  typename List::value_type Pick(const List &list) {
    return list[Below(list.size())];
  }

  std::string Scattered(std::string_view characters, std::size_t length) {
    std::string text(length, '\0');
    std::generate(text.begin(), text.end(), [&] { return Pick(characters); });
    return text;
  }

  std::string Changed(std::string text) {
    for (unsigned count = Below(3); count > 0; --count) {
      const std::size_t at = Below(text.size() + 1);
      text.replace(at, Below(2), Scattered("0123456789aFg:.-* ", Below(3)));
    }
    return text;
  }

  std::mt19937 random_;
};

TEST(MaskRules, MaskWhatTheExpressionsMatch) {
  const int random = testing::UnitTest::GetInstance()->random_seed();
  const auto seed = static_cast<unsigned>(GTEST_FLAG_GET(shuffle) ? random : 1);
  const Expressions expressions;
  NearMatches texts(seed);
  for (int i = 0; i < 20000; ++i) {
    const std::string text = texts.Text();
    const unsigned masks = texts.Below(4) == 0 ? texts.Below(64) : 1u << texts.Below(kRules.size());
    std::string masked = text;
    ApplyMasks(masks, masked.data());
    ASSERT_EQ(masked, expressions.Mask(masks, text)) << text << " under " << masks << ", seed " << seed;
  }
}

}  // namespace
}  // namespace zor
