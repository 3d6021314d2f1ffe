// Records of tagged fields: how a server writes down its state for its successor, which may be another version.
//
// A field is a tag (uint16), a length (uint32) and that many bytes, in the byte order of the machine, since a record
// never leaves it. A reader skips tags that it does not know, and leaves a value whose tag is missing at its default;
// so a tag, once used, keeps its meaning and its type. The reader trusts nothing: a record that is cut, or a value that
// does not fit, makes it invalid and is never followed.
//
// One function describes a record for both directions:
//
//   struct Counted { uint64_t in = 0; std::string name; std::vector<Item> items; };
//   template <typename Fields, OneOf<Counted> Record>
//   void Describe(Fields &fields, Record &record) { fields(1, record.in); fields(2, record.name); ... }
//
// A value is a number, an enumeration or a bool (8 bytes); a text; a vector or an array of plain values without padding
// (their bytes); FieldBytes; another record (its fields), or an optional one; or a vector of records (one field each,
// with the same tag). With kOmitEmpty a number that is 0, a text or list that is empty, or a record without fields
// takes up no room: only for values whose default is that.
#ifndef PROGRAMS_FIELDS_H
#define PROGRAMS_FIELDS_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace zor::daemon {

// The record itself, or a constant one, which can only be written.
template <typename Record, typename Type>
concept OneOf = std::same_as<std::remove_const_t<Record>, Type>;

template <typename Value>
concept FieldNumber = std::is_integral_v<Value> || std::is_enum_v<Value>;
template <typename Value>
concept FieldItem = std::is_trivially_copyable_v<Value> && std::has_unique_object_representations_v<Value>;
// A text, or a vector of plain items.
template <typename Value>
concept FieldList = requires(Value &value) {
  value.resize(size_t{1});
  requires FieldItem<typename Value::value_type>;
};
// An array of plain items.
template <typename Value>
concept FieldArray = FieldItem<Value> &&(std::is_array_v<Value> || requires { std::tuple_size<Value>::value; });
// A vector of records.
template <typename Value>
concept FieldRecords = !FieldList<Value> && requires(Value & value) {
  value.emplace_back();
};

// A record that may be missing.
template <typename Value>
concept FieldOptional = requires(Value &value) {
  value.emplace();
};

// Bytes that are not copied when they are read: they are part of the record then, which must outlive them.
class FieldBytes {
 public:
  FieldBytes() = default;
  FieldBytes(std::vector<std::byte> own) : own_(std::move(own)) {}
  static FieldBytes In(std::span<const std::byte> record) {
    FieldBytes bytes;
    bytes.inRecord_ = record;
    return bytes;
  }

  std::span<const std::byte> span() const { return own_.empty() ? inRecord_ : std::span(own_); }
  size_t size() const { return span().size(); }

 private:
  std::vector<std::byte> own_;
  std::span<const std::byte> inRecord_;
};

// Bytes before the content of a field.
inline constexpr size_t kFieldHead = sizeof(uint16_t) + sizeof(uint32_t);

struct OmitEmpty {};
inline constexpr OmitEmpty kOmitEmpty;

class FieldWriter {
 public:
  // Appends to the record.
  explicit FieldWriter(std::vector<std::byte> &record) : record_(record) {}

  // False if a value was too long for its field.
  bool valid() const { return valid_; }

  template <typename Value>
  void operator()(uint16_t tag, const Value &value) {
    if constexpr (FieldNumber<Value>) {
      const auto number = static_cast<uint64_t>(value);
      Bytes(tag, std::as_bytes(std::span(&number, 1)));
    } else if constexpr (std::is_same_v<Value, FieldBytes>) {
      Bytes(tag, value.span());
    } else if constexpr (FieldList<Value> || FieldArray<Value>) {
      Bytes(tag, std::as_bytes(std::span(value)));
    } else if constexpr (FieldRecords<Value>) {
      for (const auto &each : value) (*this)(tag, each);
    } else if constexpr (FieldOptional<Value>) {
      if (value) (*this)(tag, *value);
    } else {
      const size_t start = Begin(tag);
      Describe(*this, value);
      End(start);
    }
  }
  template <typename Value>
  void operator()(uint16_t tag, const Value &value, OmitEmpty) {
    const size_t before = record_.size();
    if constexpr (FieldNumber<Value>) {
      if (value == Value{}) return;
    }
    (*this)(tag, value);
    if (record_.size() == before + kFieldHead) record_.resize(before);
  }

 private:
  void Bytes(uint16_t tag, std::span<const std::byte> bytes);
  size_t Begin(uint16_t tag);
  void End(size_t start);

  std::vector<std::byte> &record_;
  bool valid_ = true;
};

struct Field {
  uint16_t tag;
  std::span<const std::byte> bytes;
};

// Takes the field at the start of the bytes off them; nothing if it is cut.
std::optional<Field> TakeField(std::span<const std::byte> &bytes);

class FieldReader {
 public:
  explicit FieldReader(std::span<const std::byte> record);

  // Whether the record is intact, and everything read so far fitted.
  bool valid() const { return valid_; }

  template <typename Value>
  void operator()(uint16_t tag, Value &value) {
    if constexpr (FieldRecords<Value>) {
      ForEach(tag, [&](std::span<const std::byte> bytes) { ReadRecord(bytes, value.emplace_back()); });
    } else if (const auto bytes = Find(tag)) {
      if constexpr (FieldOptional<Value>) {
        Read(*bytes, value.emplace());
      } else {
        Read(*bytes, value);
      }
    }
  }
  template <typename Value>
  void operator()(uint16_t tag, Value &value, OmitEmpty) {
    (*this)(tag, value);
  }

 private:
  template <typename Value>
  void Read(std::span<const std::byte> bytes, Value &value) {
    if constexpr (FieldNumber<Value>) {
      ReadNumber(bytes, value);
    } else if constexpr (std::is_same_v<Value, FieldBytes>) {
      value = FieldBytes::In(bytes);
    } else if constexpr (FieldList<Value>) {
      constexpr size_t kItem = sizeof(typename Value::value_type);
      if (!Check(bytes.size() % kItem == 0)) return;
      value.resize(bytes.size() / kItem);
      if (!bytes.empty()) std::memcpy(value.data(), bytes.data(), bytes.size());
    } else if constexpr (FieldArray<Value>) {
      if (Check(bytes.size() == sizeof value)) std::memcpy(&value, bytes.data(), bytes.size());
    } else {
      ReadRecord(bytes, value);
    }
  }

  template <typename Value>
  void ReadNumber(std::span<const std::byte> bytes, Value &value) {
    uint64_t number;
    if (!Check(bytes.size() == sizeof number)) return;
    std::memcpy(&number, bytes.data(), sizeof number);
    if constexpr (std::is_same_v<Value, bool>) {
      if (Check(number <= 1)) value = number != 0;
    } else {
      // A number that changes on the way there and back does not fit.
      const auto narrowed = static_cast<Value>(number);
      if (Check(static_cast<uint64_t>(narrowed) == number)) value = narrowed;
    }
  }

  template <typename Value>
  void ReadRecord(std::span<const std::byte> bytes, Value &value) {
    FieldReader nested(bytes);
    Describe(nested, value);
    Check(nested.valid());
  }

  template <typename Visit>
  void ForEach(uint16_t tag, Visit visit) const {
    auto rest = record_;
    while (const auto field = TakeField(rest)) {
      if (field->tag == tag) visit(field->bytes);
    }
  }

  std::optional<std::span<const std::byte>> Find(uint16_t tag) const;
  bool Check(bool fits) {
    valid_ = valid_ && fits;
    return fits;
  }

  std::span<const std::byte> record_;
  bool valid_;
};

// The whole record as bytes; nothing if a value is too long.
template <typename Record>
std::optional<std::vector<std::byte>> WriteRecord(const Record &record) {
  std::vector<std::byte> bytes;
  FieldWriter writer(bytes);
  Describe(writer, record);
  if (!writer.valid()) return std::nullopt;
  return bytes;
}

// Nothing if the bytes are not such a record.
template <typename Record>
std::optional<Record> ReadRecord(std::span<const std::byte> bytes) {
  std::optional<Record> record(std::in_place);
  FieldReader reader(bytes);
  Describe(reader, *record);
  if (!reader.valid()) record.reset();
  return record;
}

}  // namespace zor::daemon

#endif
