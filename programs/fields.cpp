#include "programs/fields.h"

namespace zor::daemon {
namespace {

bool IsIntact(std::span<const std::byte> record) {
  while (!record.empty()) {
    if (!TakeField(record)) return false;
  }
  return true;
}

}  // namespace

void FieldWriter::Bytes(uint16_t tag, std::span<const std::byte> bytes) {
  const size_t start = Begin(tag);
  record_.insert(record_.end(), bytes.begin(), bytes.end());
  End(start);
}

// Returns where the field's content starts.
size_t FieldWriter::Begin(uint16_t tag) {
  const size_t start = record_.size() + kFieldHead;
  record_.resize(start);
  std::memcpy(record_.data() + start - kFieldHead, &tag, sizeof tag);
  return start;
}

void FieldWriter::End(size_t start) {
  const size_t size = record_.size() - start;
  valid_ = valid_ && size <= std::numeric_limits<uint32_t>::max();
  const auto length = static_cast<uint32_t>(size);
  std::memcpy(record_.data() + start - sizeof length, &length, sizeof length);
}

std::optional<Field> TakeField(std::span<const std::byte> &bytes) {
  uint16_t tag;
  uint32_t length;
  if (bytes.size() < kFieldHead) return std::nullopt;
  std::memcpy(&tag, bytes.data(), sizeof tag);
  std::memcpy(&length, bytes.data() + sizeof tag, sizeof length);
  if (length > bytes.size() - kFieldHead) return std::nullopt;
  const Field field{tag, bytes.subspan(kFieldHead, length)};
  bytes = bytes.subspan(kFieldHead + length);
  return field;
}

FieldReader::FieldReader(std::span<const std::byte> record) : record_(record), valid_(IsIntact(record)) {
  if (!valid_) record_ = {};
}

std::optional<std::span<const std::byte>> FieldReader::Find(uint16_t tag) const {
  auto rest = record_;
  while (const auto field = TakeField(rest)) {
    if (field->tag == tag) return field->bytes;
  }
  return std::nullopt;
}

}  // namespace zor::daemon
