#include "syslogd/log_record.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "programs/format_time.h"

namespace zor::syslogd {
namespace {

std::size_t SlotOf(std::size_t textLength) {
  return (textLength + ZOR_LOG_SLOT_ALIGN) / ZOR_LOG_SLOT_ALIGN * ZOR_LOG_SLOT_ALIGN;
}

std::optional<std::vector<std::string>> ParseParameters(const ZOR_LOG_RECORD &wire) {
  std::vector<std::string> parameters;
  std::size_t at = 0;
  while (parameters.size() < wire.parameterCount) {
    if (wire.usedLength > sizeof wire.parameters || at >= wire.usedLength) return std::nullopt;
    std::string text(wire.parameters + at, ::strnlen(wire.parameters + at, wire.usedLength - at));
    at += SlotOf(text.size());
    parameters.push_back(text == ZOR_LOG_EMPTY_PARAMETER ? std::string() : std::move(text));
  }
  return parameters;
}

// Nothing for an unknown item, or for a kernel line without a type.
std::optional<std::uint32_t> TypeLevelOf(const ZOR_LOG_RECORD &wire, bool fromKernel) {
  if (fromKernel) {
    if (wire.index != ZOR_LOG_KERNEL_INDEX || wire.typeLevel >> ZOR_LOG_TYPE_SHIFT == 0) return std::nullopt;
    return wire.typeLevel;
  }
  const ZOR_LOG_ITEM *item = ZOR_UTIL_LogItemFindByIdx(wire.index);
  if (item == nullptr) return std::nullopt;
  return item->typeLevel;
}

const char *FormatOf(const LogRecord &record, std::uint32_t language) {
  if (record.index == ZOR_LOG_KERNEL_INDEX) return "$0";
  const char *format = ZOR_UTIL_LogItemGetFmtStr(ZOR_UTIL_LogItemFindByIdx(record.index), language);
  return format == nullptr ? "" : format;
}

// Parameters come from other processes, and must not end a line or start one that looks like another record.
std::string WithoutControlCharacters(std::string text) {
  const auto isControl = [](char each) { return static_cast<unsigned char>(each) < ' ' || each == '\x7f'; };
  std::ranges::replace_if(text, isControl, ' ');
  return text;
}

// Names that are missing in one language are shown in the other.
std::string NameIn(const char *(*find)(std::uint32_t, std::uint32_t), std::uint32_t code, std::uint32_t language) {
  const char *name = find(code, language);
  if (name == nullptr) name = find(code, 0);
  return name == nullptr ? "-" : name;
}

unsigned LowestBit(std::uint32_t bits, unsigned fallback) {
  return bits == 0 ? fallback : static_cast<unsigned>(std::countr_zero(bits));
}

std::string OrDash(const std::string &text) {
  return text.empty() ? "-" : text;
}

}  // namespace

std::optional<LogRecord> ParseRecord(const ZOR_LOG_RECORD &wire, bool fromKernel) {
  const std::optional<std::uint32_t> typeLevel = TypeLevelOf(wire, fromKernel);
  std::optional<std::vector<std::string>> parameters = ParseParameters(wire);
  if (!typeLevel || !parameters) return std::nullopt;
  return LogRecord{std::time(nullptr), wire.index, *typeLevel, std::move(*parameters)};
}

std::string RenderText(const LogRecord &record, std::uint32_t language) {
  std::string text;
  for (const char *at = FormatOf(record, language); *at != '\0'; ++at) {
    if (at[0] != '$' || at[1] < '0' || at[1] > '9') {
      text += *at;
      continue;
    }
    const auto number = static_cast<std::size_t>(*++at - '0');
    if (number < record.parameters.size()) text += record.parameters[number];
  }
  return WithoutControlCharacters(std::move(text));
}

std::string RenderLine(const LogRecord &record, std::uint32_t language) {
  return daemon::FormatTime(record.time, "%Y-%m-%d %H:%M:%S", ::localtime_r) + " [" +
         NameIn(ZOR_UTIL_LOG_GetTypeString, record.typeLevel, language) + "][" +
         NameIn(ZOR_UTIL_LOG_GetLevelString, record.typeLevel, language) + "] " + RenderText(record, language);
}

std::string RenderRfc5424(const LogRecord &record, std::uint32_t language, const std::string &hostName) {
  constexpr unsigned kUserFacility = 1;
  constexpr unsigned kNoticeSeverity = 5;
  const unsigned facility = LowestBit(record.typeLevel >> ZOR_LOG_TYPE_SHIFT, kUserFacility);
  const unsigned severity = LowestBit(record.typeLevel & ZOR_LOG_LEVEL_MASK, kNoticeSeverity);
  const bool fromKernel = record.index == ZOR_LOG_KERNEL_INDEX;
  char messageId[16] = "-";
  if (!fromKernel) std::snprintf(messageId, sizeof messageId, "%08X", record.index);
  return "<" + std::to_string(facility * 8 + severity) + ">1 " +
         daemon::FormatTime(record.time, "%Y-%m-%dT%H:%M:%SZ", ::gmtime_r) + " " + OrDash(hostName) + " " +
         (fromKernel ? "kernel" : OrDash(logGetProcName(record.index))) + " - " + messageId + " - " +
         RenderText(record, language);
}

}  // namespace zor::syslogd
