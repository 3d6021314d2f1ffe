#include "programs/mlog_header.h"

#include <zor/mlog_wire.h>

#include <charconv>

namespace zor {
namespace {

// From a thousand rounds on the header is cut at its end; the fields read here stay.
std::optional<long> FieldOf(std::string_view header, std::string_view name) {
  const size_t at = header.find(name);
  if (at == header.npos) return std::nullopt;
  const std::string_view digits = header.substr(at + name.size());
  long value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || value < 0) return std::nullopt;
  return value;
}

}  // namespace

std::optional<MlogHeader> ReadMlogHeader(std::string_view bytes) {
  const std::string_view header = bytes.substr(0, ZOR_MLOG_FILE_HEADER_SIZE);
  if (header.size() < ZOR_MLOG_FILE_HEADER_SIZE) return std::nullopt;
  const auto overturn = FieldOf(header, "[overturn="), offset = FieldOf(header, "[offset=");
  if (!overturn || !offset || *offset < ZOR_MLOG_FILE_HEADER_SIZE) return std::nullopt;
  return MlogHeader{*overturn, static_cast<size_t>(*offset)};
}

}  // namespace zor
