// The logging daemon's reader: the input is a datagram.
#include "mlogserver/datagram.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "fuzz.h"
#include "mlogserver/log_line.h"

namespace {

using zor::fuzz::Require;
using namespace zor::mlogserver;  // NOLINT(google-build-using-namespace): the code under test

bool IsControl(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte < ' ' || byte == 0x7f;
}

// The bytes of a control character beyond ASCII.
bool HasHighControl(std::string_view text) {
  for (size_t at = 1; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (text[at - 1] == '\xc2' && byte >= 0x80 && byte < 0xa0) return true;
  }
  return false;
}

void CheckLine(std::string_view text) {
  std::string line = LogLine({1, 2}, text);
  Require(line.starts_with("[pid=1 uid=2]") && line.ends_with('\n'), "a line begins with its sender");
  line.pop_back();
  Require(std::none_of(line.begin(), line.end(), IsControl) && !HasHighControl(line), "a datagram is one line");
  Require(line.size() <= 4 * text.size() + 32, "a line is bounded");
  const bool isPlain = std::none_of(text.begin(), text.end(), IsControl) && !HasHighControl(text);
  Require(!isPlain || line.ends_with(text), "an ordinary text stays as it is");
}

void CheckStatistic(const Statistic &statistic) {
  Require(!statistic.name.empty() && statistic.name.find('\0') == std::string::npos, "a statistic has a name");
  const ZOR_MLOG_MSG reply = StatisticReply(statistic);
  Require(IsWhole(reply, ZOR_MLOG_HEAD_SIZE + reply.length), "a reply is whole");
  const auto again = StatisticOf(reply);
  Require(again && again->name == statistic.name && again->value == statistic.value, "a reply carries both texts");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  ZOR_MLOG_MSG msg;
  std::memset(&msg, 'x', sizeof msg);  // what an earlier datagram left there
  std::memcpy(&msg, data, std::min(size, sizeof msg));
  if (!IsWhole(msg, size)) return 0;
  if (const auto line = LineOf(msg)) CheckLine(*line);
  const auto statistic = StatisticOf(msg);
  if (statistic) CheckStatistic(*statistic);
  const auto name = StatisticNameOf(msg);
  Require(!statistic || (name && *name == statistic->name), "a statistic can be asked for");
  return 0;
}
