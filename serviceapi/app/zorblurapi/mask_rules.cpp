#include "app/zorblurapi/mask_rules.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "app/zorblurapi/mask_patterns.h"

namespace zor {
namespace {

constexpr char kStar = '*';

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

// To the end of the text, not of the match: what follows an address on its line may reveal its owner. Every character
// is written, the kept ones too, so that the compiler can take many at a time.
template <char kKept>
void MaskToTheEnd(char *match, std::size_t) {
  std::transform(match, match + std::strlen(match), match, [](char c) { return c == kKept ? c : kStar; });
}

void MaskMatch(char *match, std::size_t length) {
  Stars(match, length);
}

// A match has one of the separators after at most leadMax characters, and a separator is far cheaper to look for.
struct Pattern {
  std::size_t (*match)(const char *text) noexcept;
  const char *separators;
  std::ptrdiff_t leadMax;
};

constexpr Pattern kMac = {MatchMac, ":-", 2};
constexpr Pattern kIpv4 = {MatchIpv4, ".", 3};
constexpr Pattern kUuid = {MatchUuid, "-", 4};
constexpr Pattern kIpv6 = {MatchIpv6, ":", 4};

struct Rule {
  Pattern pattern;
  void (*mask)(char *match, std::size_t length);
  bool toTheEnd = false;  // nothing behind a match can match again
};

constexpr std::array<Rule, 6> kRules = {{
    {kMac, MaskPartOfMac},
    {kIpv4, MaskPartOfIpv4},
    {kUuid, MaskEndOfUuid},
    {kMac, MaskToTheEnd<':'>, true},
    {kIpv4, MaskToTheEnd<'.'>, true},
    {kIpv6, MaskMatch},
}};

struct Match {
  char *start;  // null: no match
  std::size_t length;
};

// The first match in the text, and the longest that starts there.
Match FindFirst(const Pattern &pattern, char *text) {
  for (;;) {
    char *separator = text + std::strcspn(text, pattern.separators);
    if (*separator == '\0') return {nullptr, 0};
    for (char *at = separator - std::min(separator - text, pattern.leadMax); at <= separator; ++at) {
      if (const std::size_t length = pattern.match(at); length != 0) return {at, length};
    }
    text = separator + 1;
  }
}

void ApplyRule(const Rule &rule, char *text) {
  for (Match match = FindFirst(rule.pattern, text); match.start != nullptr; match = FindFirst(rule.pattern, text)) {
    rule.mask(match.start, match.length);
    if (rule.toTheEnd) return;
    text = match.start + match.length;
  }
}

}  // namespace

void ApplyMasks(std::uint32_t masks, char *text) noexcept {
  for (std::size_t row = 0; row < kRules.size(); ++row) {
    if ((masks >> row & 1u) != 0) ApplyRule(kRules[row], text);
  }
}

}  // namespace zor
