#include "zorweb/traffic_filter.h"

#include <algorithm>

#include "programs/messages/invalid.h"
#include "programs/messages/message_types.h"

namespace zor::web {
namespace {

bool IsName(std::string_view text) {
  return text.size() < ZOR_MSG_NAME_SIZE &&
         std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
}

}  // namespace

bool TrafficFilter::Matches(const messages::BusCopy &copy) const {
  if (undelivered && copy.delivered()) return false;
  if (!daemon.empty() && daemon != copy.source() && daemon != copy.receiver()) return false;
  return lastType == 0 || (copy.type() >= firstType && copy.type() <= lastType);
}

ZOR_CONTROL_FILTER TrafficFilter::AsRequest() const {
  ZOR_CONTROL_FILTER filter = {};
  daemon.copy(filter.name, sizeof filter.name - 1);
  filter.directions = ZOR_CONTROL_SENT | ZOR_CONTROL_RECEIVED;
  filter.firstType = firstType;
  filter.lastType = lastType;
  return filter;
}

std::optional<TrafficFilter> ParseTrafficFilter(std::string_view daemon, std::string_view types) {
  if (!IsName(daemon)) return std::nullopt;
  TrafficFilter filter;
  filter.daemon = daemon;
  if (types.empty()) return filter;
  try {
    const size_t hyphen = types.find('-');
    filter.firstType = messages::ParseType(types.substr(0, hyphen));
    filter.lastType = hyphen == types.npos ? filter.firstType : messages::ParseType(types.substr(hyphen + 1));
  } catch (const messages::Invalid &) {
    return std::nullopt;
  }
  if (filter.lastType == 0 || filter.lastType < filter.firstType) return std::nullopt;
  return filter;
}

}  // namespace zor::web
