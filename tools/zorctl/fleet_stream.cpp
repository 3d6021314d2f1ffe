#include "zorctl/fleet_stream.h"

#include "programs/messages/json_text.h"
#include "zorctl/output.h"

namespace zor::ctl {
namespace {

constexpr size_t kMostStreamBytes = 16;
// That are remembered of a gateway: a bridge begins one when it is started, a malicious one whenever it likes.
constexpr size_t kMostStreams = 64;

}  // namespace

FleetStream::FleetStream(Fleet &fleet, const std::vector<std::string> &topics, bool complete)
    : fleet_(fleet), complete_(complete) {
  std::vector<std::string> filters;
  for (const std::string &topic : topics) {
    for (std::string &filter : fleet.Filters(topic)) filters.push_back(std::move(filter));
  }
  fleet.line().Subscribe(filters, 1, fleet.brokerDeadline());
}

void FleetStream::CheckNumber(StreamRecord &record) {
  const uint64_t number = CountOf(record.document, "number");
  const std::string stream = TextOf(record.document, "stream");
  if (number == 0 || stream.empty() || stream.size() > kMostStreamBytes) return;  // not kept by a bridge
  auto &streams = last_[record.gateway];
  if (streams.size() > kMostStreams) streams.clear();
  const auto [last, isFirst] = streams.try_emplace(stream, number);
  if (isFirst) return;
  record.isDouble = number <= last->second;
  if (record.isDouble) return;
  if (complete_) record.missing = number - last->second - 1;
  last->second = number;
}

bool FleetStream::Run(const Deadline &deadline, const std::function<bool(const StreamRecord &)> &onRecord) {
  while (!deadline.over()) {  // a line that is never quiet always has a next one
    Flush();
    const auto delivery = fleet_.line().Receive(deadline);
    if (!delivery) return false;
    const auto place = fleet_.PlaceOf(delivery->topic);
    if (!place || !delivery->refusal.empty()) continue;
    StreamRecord record{place->gateway, std::string(place->rest), messages::ParseJson(delivery->payload)};
    if (!record.document.is_object()) record.document = {{"malformed", delivery->payload.size()}};
    CheckNumber(record);
    if (!onRecord(record)) return true;
  }
  return false;
}

}  // namespace zor::ctl
