// The log daemon's readers of requests: the input is the body of a record or of a query. For every input a record is
// one printable line, as text and for remote servers, and a result is written only in the directory for results.
#include <algorithm>
#include <cstring>

#include "fuzz.h"
#include "programs/paths.h"
#include "syslogd/log_record.h"
#include "syslogd/query_path.h"

namespace {

using zor::fuzz::Require;
using namespace zor::syslogd;  // NOLINT(google-build-using-namespace): the code under test

// The input, cut or filled up.
template <typename Record>
Record As(const uint8_t *data, size_t size) {
  Record record;
  std::memset(&record, 'x', sizeof record);
  std::memcpy(&record, data, std::min(size, sizeof record));
  return record;
}

bool IsOneLine(const std::string &text) {
  return std::none_of(text.begin(), text.end(), [](char each) { return static_cast<unsigned char>(each) < ' '; });
}

void CheckRecord(const ZOR_LOG_RECORD &wire, bool fromKernel) {
  const auto record = ParseRecord(wire, fromKernel);
  if (!record) return;
  size_t length = 0;
  for (const std::string &parameter : record->parameters) length += parameter.size();
  Require(length <= sizeof wire.parameters, "parameters are those of the record");
  for (const uint32_t language : {0u, 1u, 2u}) {
    Require(IsOneLine(RenderLine(*record, language)), "a record is one line");
    const std::string remote = RenderRfc5424(*record, language, "host");
    Require(remote.starts_with('<') && IsOneLine(remote), "a record is one line for remote servers");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  for (const bool fromKernel : {false, true}) CheckRecord(As<ZOR_LOG_RECORD>(data, size), fromKernel);
  const std::string directory = "/var/syslog";
  const std::string path = ResultPath(As<ZOR_LOG_QUERY>(data, size), directory);
  const std::string start = zor::daemon::FixedPath(directory + "/");
  const std::string name = path.empty() ? "" : path.substr(std::min(start.size(), path.size()));
  Require(path.empty() ||
              (path.starts_with(start) && !name.empty() && name != ".." && name != "." && name.find('/') == name.npos),
          "a result is directly in its directory");
  return 0;
}
