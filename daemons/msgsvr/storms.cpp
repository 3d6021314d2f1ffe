#include "msgsvr/storms.h"

#include <algorithm>

#include "programs/format_number.h"

namespace zor::msgsvr {

void Storms::Look(uint32_t elapsedMs) {
  elapsedMs_ = elapsedMs;
  for (Storm &storm : storms_) storm.lasts = false;
  for (const Client &client : bus_.clients) {
    for (const Flows::Flow &flow : client.flows.state().counts) {
      // Each pair once, from its older member.
      if (flow.to <= client.id || !IsFast(flow)) continue;
      const Client *other = bus_.Find(flow.to);
      const Flows::Flow *back = other == nullptr ? nullptr : FastestTo(*other, client.id);
      if (back != nullptr) Note({&client, flow}, {other, *back});
    }
  }
  std::erase_if(storms_, [](const Storm &storm) { return !storm.lasts; });
}

bool Storms::IsFast(const Flows::Flow &flow) const {
  return uint64_t{flow.count} * 1000 > uint64_t{bus_.settings.stormRate} * elapsedMs_;
}

// Null if there is no fast one.
const Flows::Flow *Storms::FastestTo(const Client &from, uint64_t to) const {
  const Flows::Flow *fastest = nullptr;
  for (const Flows::Flow &flow : from.flows.state().counts) {
    if (flow.to != to || !IsFast(flow)) continue;
    if (fastest == nullptr || flow.count > fastest->count) fastest = &flow;
  }
  return fastest;
}

void Storms::Note(const Direction &there, const Direction &back) {
  Storm &storm = Find(there, back);
  storm.lasts = true;
  if (storm.named || bus_.nowMs - storm.sinceMs < bus_.settings.stormSeconds * 1000) return;
  storm.named = true;
  Name(storm, there, back);
}

// Begins one if it is new.
Storms::Storm &Storms::Find(const Direction &there, const Direction &back) {
  const uint64_t older = there.from->id, newer = back.from->id;
  const auto found = std::find_if(storms_.begin(), storms_.end(), [&](const Storm &storm) {
    return storm.ids[0] == older && storm.ids[1] == newer && storm.type == there.flow.type;
  });
  if (found != storms_.end()) return *found;
  return storms_.emplace_back(Storm{{older, newer}, there.flow.type, bus_.nowMs - elapsedMs_, false, false});
}

void Storms::Name(const Storm &storm, const Direction &there, const Direction &back) {
  const auto text = [&](const Direction &one, const Direction &other) {
    return std::string(one.from->Label().c_str()) + " sends " + daemon::HexText(one.flow.type) + " to " +
           other.from->Label().c_str() + " " + std::to_string(uint64_t{one.flow.count} * 1000 / elapsedMs_) +
           " times a second";
  };
  bus_.log.Print("a storm for %s: %s, %s", daemon::AgeText(bus_.nowMs - storm.sinceMs).c_str(),
                 text(there, back).c_str(), text(back, there).c_str());
}

}  // namespace zor::msgsvr
