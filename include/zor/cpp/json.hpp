// A small JSON value: what bodies and events carry. Members keep their order; the first of two with one name counts.
#ifndef ZOR_CPP_JSON_HPP
#define ZOR_CPP_JSON_HPP

#include <zor/cpp/error.hpp>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace zor {
inline namespace face {

struct JsonMember;

/// A JSON value. Written as `Json{{"actual", 21.5}, {"label", "hall"}}` and `Json::array({1, 2})`, read as
/// `json["actual"].number()`. Reading what is not there gives the null value, or the default that the caller names.
class Json {
 public:
  enum class Kind { kNull, kBoolean, kInteger, kNumber, kText, kArray, kObject };
  using Member = JsonMember;

  Json() noexcept;
  Json(std::nullptr_t) noexcept;
  template <typename T, std::enable_if_t<std::is_arithmetic_v<T>, int> = 0>
  Json(T value) noexcept {
    if constexpr (std::is_same_v<T, bool>) {
      kind_ = Kind::kBoolean;
      integer_ = value ? 1 : 0;
    } else if constexpr (std::is_floating_point_v<T>) {
      kind_ = Kind::kNumber;
      number_ = static_cast<double>(value);
    } else if (value > 0 && static_cast<std::uint64_t>(value) > kIntegerMax) {
      kind_ = Kind::kNumber;
      number_ = static_cast<double>(value);
    } else {
      kind_ = Kind::kInteger;
      integer_ = static_cast<std::int64_t>(value);
    }
  }
  Json(const char *text);
  Json(std::string_view text);
  Json(std::string text) noexcept;
  /// An object.
  Json(std::initializer_list<JsonMember> members);
  Json(const Json &other);
  Json(Json &&other) noexcept;
  Json &operator=(const Json &other);
  Json &operator=(Json &&other) noexcept;
  ~Json();

  static Json object();
  static Json array(std::vector<Json> items = {});

  Kind kind() const noexcept { return kind_; }
  bool is_null() const noexcept { return kind_ == Kind::kNull; }
  bool is_object() const noexcept { return kind_ == Kind::kObject; }
  bool is_array() const noexcept { return kind_ == Kind::kArray; }
  bool is_text() const noexcept { return kind_ == Kind::kText; }
  bool is_number() const noexcept { return kind_ == Kind::kInteger || kind_ == Kind::kNumber; }

  bool boolean(bool otherwise = false) const noexcept { return kind_ == Kind::kBoolean ? integer_ != 0 : otherwise; }
  double number(double otherwise = 0) const noexcept {
    if (kind_ == Kind::kInteger) return static_cast<double>(integer_);
    return kind_ == Kind::kNumber ? number_ : otherwise;
  }
  /// A number without a fraction that fits; else the default.
  std::int64_t integer(std::int64_t otherwise = 0) const noexcept {
    if (kind_ == Kind::kInteger) return integer_;
    constexpr double kLimit = 9223372036854775808.0;
    const bool fits =
        kind_ == Kind::kNumber && number_ >= -kLimit && number_ < kLimit && std::trunc(number_) == number_;
    return fits ? static_cast<std::int64_t>(number_) : otherwise;
  }
  std::string_view text(std::string_view otherwise = {}) const noexcept {
    return kind_ == Kind::kText ? std::string_view(text_) : otherwise;
  }

  /// The member of that name; the null value when there is none.
  const Json &operator[](std::string_view name) const noexcept;
  const Json &operator[](const char *name) const noexcept { return (*this)[std::string_view(name)]; }
  /// The item at that place; the null value beyond the end.
  const Json &at(std::size_t place) const noexcept;
  bool contains(std::string_view name) const noexcept;
  /// How many items or members there are.
  std::size_t size() const noexcept;
  const std::vector<Json> &items() const noexcept { return items_; }
  const std::vector<JsonMember> &members() const noexcept { return members_; }

  /// Gives an object, which the null value becomes, this member in place of one of that name. Raises Argument for other
  /// kinds.
  Json &set(std::string_view name, Json value);
  /// Appends to an array, which the null value becomes. Raises Argument for other kinds.
  Json &push(Json value);

  /// The compact text. Numbers that JSON does not have become null.
  std::string dump() const {
    std::string out;
    AppendTo(out);
    return out;
  }
  /// Appends a text to another as a JSON string with its quotes.
  static void append_quoted(std::string &out, std::string_view text);

  /// The value of a text, which nothing but white space may follow. At most 64 levels deep.
  static Result<Json> try_parse(std::string_view text);
  static Json parse(std::string_view text);

 private:
  friend class JsonReader;
  static constexpr std::uint64_t kIntegerMax = 0x7fffffffffffffff;
  static const Json &Null() noexcept;
  void AppendTo(std::string &out) const;
  void AppendNumber(std::string &out) const;

  Kind kind_ = Kind::kNull;
  std::int64_t integer_ = 0;
  double number_ = 0;
  std::string text_;
  std::vector<Json> items_;
  std::vector<JsonMember> members_;
};

/// A member of an object.
struct JsonMember {
  JsonMember(std::string memberName, Json memberValue) : name(std::move(memberName)), value(std::move(memberValue)) {}
  std::string name;
  Json value;
};

inline Json::Json() noexcept = default;
inline Json::Json(std::nullptr_t) noexcept {}
inline Json::Json(const char *text) : kind_(Kind::kText), text_(text) {}
inline Json::Json(std::string_view text) : kind_(Kind::kText), text_(text) {}
inline Json::Json(std::string text) noexcept : kind_(Kind::kText), text_(std::move(text)) {}
inline Json::Json(std::initializer_list<JsonMember> members) : kind_(Kind::kObject), members_(members) {}
inline Json::Json(const Json &other) = default;
inline Json::Json(Json &&other) noexcept = default;
inline Json &Json::operator=(const Json &other) = default;
inline Json &Json::operator=(Json &&other) noexcept = default;
inline Json::~Json() = default;

inline const Json &Json::Null() noexcept {
  static const Json null;
  return null;
}

inline const Json &Json::at(std::size_t place) const noexcept {
  return place < items_.size() ? items_[place] : Null();
}

inline bool Json::contains(std::string_view name) const noexcept {
  return &(*this)[name] != &Null();
}

inline Json Json::object() {
  Json result;
  result.kind_ = Kind::kObject;
  return result;
}

inline Json Json::array(std::vector<Json> items) {
  Json result;
  result.kind_ = Kind::kArray;
  result.items_ = std::move(items);
  return result;
}

inline const Json &Json::operator[](std::string_view name) const noexcept {
  for (const JsonMember &member : members_) {
    if (member.name == name) return member.value;
  }
  return Null();
}

inline std::size_t Json::size() const noexcept {
  return kind_ == Kind::kArray ? items_.size() : members_.size();
}

inline Json &Json::set(std::string_view name, Json value) {
  if (kind_ == Kind::kNull) kind_ = Kind::kObject;
  if (kind_ != Kind::kObject) Argument("a member was set in what is no object").raise();
  for (JsonMember &member : members_) {
    if (member.name != name) continue;
    member.value = std::move(value);
    return *this;
  }
  members_.emplace_back(std::string(name), std::move(value));
  return *this;
}

inline Json &Json::push(Json value) {
  if (kind_ == Kind::kNull) kind_ = Kind::kArray;
  if (kind_ != Kind::kArray) Argument("an item was appended to what is no array").raise();
  items_.push_back(std::move(value));
  return *this;
}

inline void Json::append_quoted(std::string &out, std::string_view text) {
  out += '"';
  std::size_t plain = 0;  // from here on nothing needs an escape
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte >= 0x20 && byte != '"' && byte != '\\') continue;
    out.append(text, plain, i - plain);
    plain = i + 1;
    char escape[8];
    const char *const pair = byte == '"' ? "\\\"" : byte == '\\' ? "\\\\" : byte == '\n' ? "\\n" : nullptr;
    if (pair == nullptr) std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(byte));
    out += pair != nullptr ? pair : escape;
  }
  out.append(text, plain, std::string_view::npos);
  out += '"';
}

// The shortest text that reads as the same number, with a point whatever the locale.
inline void Json::AppendNumber(std::string &out) const {
  if (!std::isfinite(number_)) {
    out += "null";
    return;
  }
  char digits[40];
  for (int precision = 15; precision <= 17; ++precision) {
    std::snprintf(digits, sizeof digits, "%.*g", precision, number_);
    if (std::strtod(digits, nullptr) == number_) break;
  }
  for (const char *digit = digits; *digit != '\0'; ++digit) {
    const bool ofNumber = (*digit >= '0' && *digit <= '9') || *digit == '-' || *digit == '+' || *digit == 'e';
    out += ofNumber ? *digit : '.';
  }
}

inline void Json::AppendTo(std::string &out) const {
  const char *separator = "";
  switch (kind_) {
    case Kind::kNull:
      out += "null";
      break;
    case Kind::kBoolean:
      out += integer_ != 0 ? "true" : "false";
      break;
    case Kind::kInteger:
      out += std::to_string(integer_);
      break;
    case Kind::kNumber:
      AppendNumber(out);
      break;
    case Kind::kText:
      append_quoted(out, text_);
      break;
    case Kind::kArray:
      out += '[';
      for (const Json &item : items_) {
        out += separator;
        item.AppendTo(out);
        separator = ",";
      }
      out += ']';
      break;
    case Kind::kObject:
      out += '{';
      for (const JsonMember &member : members_) {
        out += separator;
        append_quoted(out, member.name);
        out += ':';
        member.value.AppendTo(out);
        separator = ",";
      }
      out += '}';
      break;
  }
}

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
    if (text_.empty() || depth > kDepthMax) return false;
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
