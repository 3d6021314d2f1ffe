// Reads a JSON text.
#ifndef ZOR_CPP_JSON_READER_HPP
#define ZOR_CPP_JSON_READER_HPP

#include <zor/cpp/json.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace zor {
inline namespace face {

/// Reads one text. Every function returns false where the text is malformed.
class JsonReader {
 public:
  explicit JsonReader(std::string_view text) : text_(text) {}

  bool Read(Json &out) {
    SkipSpace();
    if (!Value(out, 0)) return false;
    SkipSpace();
    return text_.empty();
  }

 private:
  static constexpr int kDepthMax = 64;
  static constexpr std::size_t kValuesMax = 100000;  // they take many times the memory of their text

  void SkipSpace() {
    const std::size_t count = text_.find_first_not_of(" \t\r\n");
    text_.remove_prefix(count == std::string_view::npos ? text_.size() : count);
  }
  bool Take(std::string_view expected) {
    if (text_.substr(0, expected.size()) != expected) return false;
    text_.remove_prefix(expected.size());
    return true;
  }
  bool TakeToken(char token) {
    SkipSpace();
    return Take(std::string_view(&token, 1));
  }

  bool Value(Json &out, int depth) {
    if (text_.empty() || depth > kDepthMax || ++values_ > kValuesMax) return false;
    switch (text_.front()) {
      case '{':
        return Object(out, depth);
      case '[':
        return Array(out, depth);
      case '"':
        out.kind_ = Json::Kind::kText;
        return Text(out.text_);
      case 't':
        out = Json(true);
        return Take("true");
      case 'f':
        out = Json(false);
        return Take("false");
      case 'n':
        out = Json();
        return Take("null");
      default:
        return Number(out);
    }
  }

  bool Object(Json &out, int depth) {
    out.kind_ = Json::Kind::kObject;
    text_.remove_prefix(1);
    if (TakeToken('}')) return true;
    do {
      SkipSpace();
      out.members_.emplace_back(std::string(), Json());
      JsonMember &member = out.members_.back();
      if (text_.empty() || text_.front() != '"' || !Text(member.name) || !TakeToken(':')) return false;
      SkipSpace();
      if (!Value(member.value, depth + 1)) return false;
    } while (TakeToken(','));
    return TakeToken('}');
  }

  bool Array(Json &out, int depth) {
    out.kind_ = Json::Kind::kArray;
    text_.remove_prefix(1);
    if (TakeToken(']')) return true;
    do {
      SkipSpace();
      out.items_.emplace_back();
      if (!Value(out.items_.back(), depth + 1)) return false;
    } while (TakeToken(','));
    return TakeToken(']');
  }

  std::size_t Digits(std::size_t from) const {
    std::size_t to = from;
    while (to < text_.size() && text_[to] >= '0' && text_[to] <= '9') ++to;
    return to;
  }
  bool At(std::size_t place, std::string_view anyOf) const {
    return place < text_.size() && anyOf.find(text_[place]) != std::string_view::npos;
  }

  bool Number(Json &out) {
    const std::size_t first = At(0, "-") ? 1 : 0;
    std::size_t end = Digits(first);
    if (end == first || (end > first + 1 && text_[first] == '0')) return false;
    bool whole = true;
    if (At(end, ".")) {
      const std::size_t fraction = end + 1;
      end = Digits(fraction);
      if (end == fraction) return false;
      whole = false;
    }
    if (At(end, "eE")) {
      const std::size_t exponent = end + (At(end + 1, "+-") ? 2 : 1);
      end = Digits(exponent);
      if (end == exponent) return false;
      whole = false;
    }
    const std::string_view digits = text_.substr(0, end);
    text_.remove_prefix(end);
    if (!whole || !Integer(digits, out)) out = Json(Real(digits));
    return true;
  }

  // False when it does not fit; then it is read as a real number.
  static bool Integer(std::string_view digits, Json &out) {
    const bool negative = digits.front() == '-';
    const std::uint64_t limit = Json::kIntegerMax + (negative ? 1 : 0);
    std::uint64_t value = 0;
    for (const char digit : digits.substr(negative ? 1 : 0)) {
      const auto next = static_cast<std::uint64_t>(digit - '0');
      if (value > (limit - next) / 10) return false;
      value = value * 10 + next;
    }
    out.kind_ = Json::Kind::kInteger;
    out.integer_ = static_cast<std::int64_t>(negative ? 0 - value : value);
    return true;
  }

  // strtod() expects the locale's point, which is found by printing one.
  static double Real(std::string_view digits) {
    char half[8];
    std::snprintf(half, sizeof half, "%.1f", 0.5);
    std::string text(digits);
    if (const std::size_t point = text.find('.'); point != std::string::npos) text[point] = half[1];
    return std::strtod(text.c_str(), nullptr);
  }

  bool Text(std::string &out) {
    text_.remove_prefix(1);
    while (true) {
      std::size_t plain = 0;
      while (plain < text_.size() && text_[plain] != '"' && text_[plain] != '\\' &&
             static_cast<unsigned char>(text_[plain]) >= 0x20) {
        ++plain;
      }
      out.append(text_, 0, plain);
      text_.remove_prefix(plain);
      if (Take("\"")) return true;
      if (!Take("\\") || text_.empty() || !Escape(out)) return false;
    }
  }

  bool Escape(std::string &out) {
    const char letter = text_.front();
    text_.remove_prefix(1);
    if (letter == 'u') return Unicode(out);
    constexpr std::string_view kLetters = "\"\\/bfnrt", kMeanings = "\"\\/\b\f\n\r\t";
    const std::size_t place = kLetters.find(letter);
    if (place == std::string_view::npos) return false;
    out += kMeanings[place];
    return true;
  }

  bool Hex(std::uint32_t &unit) {
    unit = 0;
    if (text_.size() < 4) return false;
    for (const char digit : text_.substr(0, 4)) {
      constexpr std::string_view kDigits = "0123456789abcdefABCDEF";
      const std::size_t place = kDigits.find(digit);
      if (place == std::string_view::npos) return false;
      unit = unit * 16 + static_cast<std::uint32_t>(place < 16 ? place : place - 6);
    }
    text_.remove_prefix(4);
    return true;
  }

  // Half of a pair of surrogates alone becomes the replacement character.
  bool Unicode(std::string &out) {
    std::uint32_t code = 0;
    if (!Hex(code)) return false;
    if (code >= 0xD800 && code < 0xDC00 && text_.substr(0, 2) == "\\u") {
      const std::string_view rest = text_;
      std::uint32_t low = 0;
      text_.remove_prefix(2);
      if (!Hex(low)) return false;
      if (low >= 0xDC00 && low < 0xE000) {
        code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
      } else {
        text_ = rest;
      }
    }
    if (code >= 0xD800 && code < 0xE000) code = 0xFFFD;
    AppendUtf8(out, code);
    return true;
  }

  static void AppendUtf8(std::string &out, std::uint32_t code) {
    const auto put = [&out](std::uint32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (code < 0x80) return put(code);
    if (code < 0x800) {
      put(0xC0 | (code >> 6));
    } else if (code < 0x10000) {
      put(0xE0 | (code >> 12));
      put(0x80 | ((code >> 6) & 0x3F));
    } else {
      put(0xF0 | (code >> 18));
      put(0x80 | ((code >> 12) & 0x3F));
      put(0x80 | ((code >> 6) & 0x3F));
    }
    put(0x80 | (code & 0x3F));
  }

  std::string_view text_;
  std::size_t values_ = 0;
};

inline Result<Json> Json::try_parse(std::string_view text) {
  Json result;
  if (!JsonReader(text).Read(result)) return Error(ZOR_E_ARGUMENT, "malformed JSON");
  return result;
}

inline Json Json::parse(std::string_view text) {
  return try_parse(text).value();
}

}  // namespace face
}  // namespace zor

#endif
