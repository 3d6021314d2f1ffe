#include "app/zorblurapi/mask_rules.h"

#include <locale.h>
#include <regex.h>
#include <zor/blur.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace zor {
namespace {

constexpr char kStar = '*';

constexpr char kMacExpression[] = "([0-9A-Fa-f]{2}[:-]){5}([0-9A-Fa-f]{2})";
constexpr char kIpv4Expression[] = "([0-9]{1,3}[.]){3}[0-9]{1,3}";
constexpr char kUuidExpression[] = "(([0-9A-Fa-f]{4}[-]){3})([0-9A-Fa-f]{12})";

// Every textual form of an IPv6 address: by the number of groups in front of "::", at most seven groups in all beside
// it, an IPv4 suffix counting for two. The matcher takes the longest alternative, so the order does not matter.
#define H "[0-9A-Fa-f]{1,4}"
#define V4 "([0-9]{1,3}[.]){3}[0-9]{1,3}"
constexpr char kIpv6Expression[] =
    "(" H ":){7}" H "|(" H ":){6}" V4 "|(" H ":){1,7}:|(" H ":){1,6}:" H "|(" H ":){1,5}(:" H "){1,2}|(" H ":){1,4}(:" H
    "){1,3}|(" H ":){1,3}(:" H "){1,4}|(" H ":){1,2}(:" H "){1,5}|" H ":(:" H "){1,6}|:((:" H "){1,7}|:)|::(" H
    ":){0,5}" V4 "|(" H ":){1,5}:" V4 "|(" H ":){1,4}:" H ":" V4 "|(" H ":){1,3}(:" H "){1,2}:" V4 "|(" H ":){1,2}(:" H
    "){1,3}:" V4 "|" H ":(:" H "){1,4}:" V4;
#undef H
#undef V4

void Stars(char *from, std::size_t count) {
  std::memset(from, kStar, count);
}

// The 2nd, 3rd and 5th octets.
void MaskPartOfMac(char *match, std::size_t) {
  for (const std::size_t at : {3u, 6u, 12u}) Stars(match + at, 2);
}

// The 2nd and 3rd octets.
void MaskPartOfIpv4(char *match, std::size_t) {
  char *dot = std::strchr(match, '.');
  for (int octet = 0; octet < 2; ++octet) {
    char *next = std::strchr(dot + 1, '.');
    Stars(dot + 1, static_cast<std::size_t>(next - dot - 1));
    dot = next;
  }
}

void MaskEndOfUuid(char *match, std::size_t) {
  Stars(match + 15, 12);
}

// To the end of the text, not of the match: what follows an address on its line tells whose it is. Every character is
// written, the kept ones too, so that the compiler can take many at a time.
template <char kKept>
void MaskToTheEnd(char *match, std::size_t) {
  std::transform(match, match + std::strlen(match), match, [](char c) { return c == kKept ? c : kStar; });
}

void MaskMatch(char *match, std::size_t length) {
  Stars(match, length);
}

// A match has one of the separators behind at most leadMax characters. That is far cheaper to look for than a match.
struct Pattern {
  const char *expression;
  const char *separators;
  std::size_t leadMax;
};

constexpr Pattern kMac = {kMacExpression, ":-", 2};
constexpr Pattern kIpv4 = {kIpv4Expression, ".", 3};
constexpr Pattern kUuid = {kUuidExpression, "-", 4};
constexpr Pattern kIpv6 = {kIpv6Expression, ":", 4};

struct Rule {
  Pattern pattern;
  void (*mask)(char *match, std::size_t length);
  bool toTheEnd = false;  // nothing behind a match is left to be found
};

constexpr std::array<Rule, 6> kRules = {{
    {kMac, MaskPartOfMac},
    {kIpv4, MaskPartOfIpv4},
    {kUuid, MaskEndOfUuid},
    {kMac, MaskToTheEnd<':'>, true},
    {kIpv4, MaskToTheEnd<'.'>, true},
    {kIpv6, MaskMatch},
}};

// Ranges of a pattern are ranges of bytes: the process's own locale might see others. An expression keeps the locale
// that it was compiled in.
class PlainLocale {
 public:
  PlainLocale() noexcept : plain_(::newlocale(LC_ALL_MASK, "C", nullptr)), saved_(::uselocale(plain_)) {}
  PlainLocale(const PlainLocale &) = delete;
  PlainLocale &operator=(const PlainLocale &) = delete;
  ~PlainLocale() {
    ::uselocale(saved_);
    if (plain_ != nullptr) ::freelocale(plain_);
  }

 private:
  locale_t plain_;
  locale_t saved_;
};

// The patterns, compiled at first use and kept. A pattern that did not compile is tried again the next time.
class Patterns {
 public:
  // Null when the row's pattern does not compile.
  const regex_t *Get(std::size_t row) noexcept {
    if (!compiled_[row]) compiled_[row] = Compile(row);
    return compiled_[row] ? &expressions_[row] : nullptr;
  }

 private:
  bool Compile(std::size_t row) noexcept {
    const PlainLocale plain;
    return ::regcomp(&expressions_[row], kRules[row].pattern.expression, REG_EXTENDED) == 0;
  }

  std::array<regex_t, kRules.size()> expressions_;
  std::array<bool, kRules.size()> compiled_ = {};
};

Patterns g_patterns;

// Where the first match may begin at the earliest; null when there is none.
char *FirstCandidate(const Pattern &pattern, char *text) {
  const std::size_t lead = std::strcspn(text, pattern.separators);
  return text[lead] == '\0' ? nullptr : text + lead - std::min(lead, pattern.leadMax);
}

void ApplyRule(const Rule &rule, const regex_t *expression, char *text) {
  regmatch_t match;
  while ((text = FirstCandidate(rule.pattern, text)) != nullptr && ::regexec(expression, text, 1, &match, 0) == 0) {
    rule.mask(text + match.rm_so, static_cast<std::size_t>(match.rm_eo - match.rm_so));
    if (rule.toTheEnd) return;
    text += match.rm_eo;
  }
}

bool IsSelected(std::uint32_t masks, std::size_t row) {
  return (masks >> row & 1u) != 0;
}

}  // namespace

std::uint32_t ApplyMasks(std::uint32_t masks, char *text) noexcept {
  for (std::size_t row = 0; row < kRules.size(); ++row) {
    if (IsSelected(masks, row) && g_patterns.Get(row) == nullptr) return ZOR_BLUR_E_IO;
  }
  for (std::size_t row = 0; row < kRules.size(); ++row) {
    if (IsSelected(masks, row)) ApplyRule(kRules[row], g_patterns.Get(row), text);
  }
  return ZOR_BLUR_OK;
}

}  // namespace zor
