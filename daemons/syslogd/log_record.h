// One record of the log, independent of its wire format and its storage.
#ifndef SYSLOGD_LOG_RECORD_H
#define SYSLOGD_LOG_RECORD_H

#include <zor/log.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace zor::syslogd {

struct LogRecord {
  std::time_t time = 0;
  std::uint32_t index = 0;  // of the item; ZOR_LOG_KERNEL_INDEX for a line of the kernel log
  std::uint32_t typeLevel = 0;
  std::vector<std::string> parameters;  // for a kernel line: its text
};

// Parses a record that has just arrived. Nothing if its item is unknown or its parameters exceed their area.
std::optional<LogRecord> ParseRecord(const ZOR_LOG_RECORD &wire, bool fromKernel);

// The item's text with its parameters filled in, on one line. Missing parameters are left out.
std::string RenderText(const LogRecord &record, std::uint32_t language);

// The same with the local time, the type and the level: "2026-11-21 09:30:00 [User][Notice] User admin logout".
std::string RenderLine(const LogRecord &record, std::uint32_t language);

// The record as a message of RFC 5424. The type's bit number is the facility, the level's is the severity.
std::string RenderRfc5424(const LogRecord &record, std::uint32_t language, const std::string &hostName);

}  // namespace zor::syslogd

#endif
