#include "zorctl/value.h"

#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>

#include "programs/messages/hex.h"
#include "programs/messages/number.h"
#include "zorctl/exit_code.h"
#include "zorctl/format.h"
#include "zorctl/input_file.h"
#include "zorctl/options.h"
#include "zorctl/record.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

// The bytes without their NUL, if they are printable text.
std::optional<std::string_view> PrintableText(std::string_view bytes) {
  const std::string_view text = bytes.ends_with('\0') ? bytes.substr(0, bytes.size() - 1) : bytes;
  return text.empty() || !IsPrintable(text) ? std::nullopt : std::optional(text);
}

std::optional<uint32_t> NumberOf(std::string_view bytes) {
  uint32_t number;
  if (bytes.size() != sizeof number) return std::nullopt;
  std::memcpy(&number, bytes.data(), sizeof number);
  return number;
}

}  // namespace

std::pair<std::string, std::string> ParsePair(const std::string &word) {
  const size_t equals = word.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw Failure(kExitUsage, "not NAME=VALUE: " + Escape(word), "write a name and = before the value");
  }
  return {word.substr(0, equals), word.substr(equals + 1)};
}

messages::Values ParsePairs(const std::vector<std::string> &words) {
  messages::Values pairs;
  for (const std::string &word : words) pairs.push_back(ParsePair(word));
  return pairs;
}

void AddFormatOption(Options &options, std::string &format) {
  options.Add("--as", format, "Format of a value: text, string (text and its NUL), hex, u32 or file")
      .OneOf({"text", "string", "hex", "u32", "file"})
      .Type("FORMAT")
      .ShowDefault();
}

std::string ParseBytes(const std::string &word, std::string_view format, size_t limit) {
  if (format == "hex") return messages::ParseHex(word);
  if (format == "u32") return std::string(RecordBytes(messages::RequireUint32(word, "the value")));
  if (format == "file") return ReadInputFile(word, limit);
  return format == "string" ? word + '\0' : word;
}

std::string ShowBytes(std::string_view bytes) {
  if (const auto text = PrintableText(bytes)) return std::string(*text);
  if (const auto number = NumberOf(bytes)) return std::to_string(*number) + " (" + HexText(*number) + ")";
  return messages::ToHex(bytes);
}

nlohmann::json BytesJson(std::string_view bytes) {
  nlohmann::json json = {{"size", bytes.size()}, {"hex", messages::ToHex(bytes)}};
  if (const auto text = PrintableText(bytes)) json["text"] = *text;
  if (const auto number = NumberOf(bytes)) json["u32"] = *number;
  return json;
}

}  // namespace zor::ctl
