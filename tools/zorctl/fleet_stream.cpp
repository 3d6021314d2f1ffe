#include "zorctl/fleet_stream.h"

#include "programs/messages/json_text.h"
#include "zorctl/output.h"

namespace zor::ctl {

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
  if (number == 0 || stream.empty()) return;  // not kept by the bridge
  const auto [last, isFirst] = last_.try_emplace({record.gateway, stream}, number);
  if (isFirst) return;
  record.isDouble = number <= last->second;
  if (record.isDouble) return;
  if (complete_) record.missing = number - last->second - 1;
  last->second = number;
}

bool FleetStream::Run(const Deadline &deadline, const std::function<bool(const StreamRecord &)> &onRecord) {
  for (;;) {
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
}

}  // namespace zor::ctl
