// A small JSON value: what bodies and events carry. Members keep their order; the first of two with one name counts.
#ifndef ZOR_CPP_JSON_HPP
#define ZOR_CPP_JSON_HPP

#include <zor/cpp/error.hpp>

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

/// A JSON value. Written as `Json{{"actual", 21.5}, {"label", "hall"}}` and with array(), read as
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
    if (kind_ != Kind::kNumber || !(number_ >= -kLimit && number_ < kLimit)) return otherwise;
    const auto whole = static_cast<std::int64_t>(number_);
    return !(static_cast<double>(whole) < number_) && !(static_cast<double>(whole) > number_) ? whole : otherwise;
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

  /// The compact text. Numbers that JSON does not have become null, bytes that are not UTF-8 U+FFFD.
  std::string dump() const {
    std::string out;
    AppendTo(out);
    return out;
  }
  /// Appends a text to another as a JSON string with its quotes.
  static void append_quoted(std::string &out, std::string_view text);

  /// The value of a text, which nothing but white space may follow. At most 64 levels deep and 100000 values.
  static Result<Json> try_parse(std::string_view text);
  static Json parse(std::string_view text);

 private:
  friend class JsonReader;
  static std::size_t Utf8Length(std::string_view text) noexcept;
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

// The length of the character that the text begins with; 0 for bytes that are none in UTF-8.
inline std::size_t Json::Utf8Length(std::string_view text) noexcept {
  const auto byte = [text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  const unsigned first = byte(0), second = byte(1);
  const std::size_t length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  const bool isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool isSurrogate = first == 0xED && second >= 0xA0;
  const bool isBeyond = first > 0xF4 || (first == 0xF4 && second >= 0x90);
  return isOverlong || isSurrogate || isBeyond ? 0 : length;
}

// Bytes that are no text become the replacement character, so that whoever reads this finds JSON.
inline void Json::append_quoted(std::string &out, std::string_view text) {
  out += '"';
  std::size_t plain = 0;  // from here on nothing needs an escape
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\') continue;
    if (const std::size_t length = byte < 0x80 ? 0 : Utf8Length(text.substr(i)); length != 0) {
      i += length - 1;
      continue;
    }
    out.append(text, plain, i - plain);
    plain = i + 1;
    char escape[8];
    const char *const pair = byte == '"'    ? "\\\""
                             : byte == '\\' ? "\\\\"
                             : byte == '\n' ? "\\n"
                             : byte >= 0x80 ? "\xEF\xBF\xBD"
                                            : nullptr;
    if (pair == nullptr) std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(byte));
    out += pair != nullptr ? pair : escape;
  }
  out.append(text, plain, std::string_view::npos);
  out += '"';
}

// The shortest text that reads as the same number, with a point whatever the locale.
inline void Json::AppendNumber(std::string &out) const {
  if (!(number_ - number_ == 0)) {  // infinite, or no number
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

}  // namespace face
}  // namespace zor

#include <zor/cpp/json_reader.hpp>

#endif
