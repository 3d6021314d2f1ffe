#include "programs/bus_view/waits.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace zor::busview {
namespace {

using daemon::Daemon;
using daemon::PendingRequest;

// As the tool's report of who waits for whom: shorter waits are those of every request.
constexpr uint64_t kLastingMs = 1000;

std::vector<Wait> WaitsOf(const std::vector<Daemon> &daemons) {
  std::unordered_map<std::string_view, size_t> oldest;  // of each name, which receives its messages
  for (size_t i = 0; i < daemons.size(); ++i) oldest.try_emplace(daemons[i].name, i);
  std::vector<Wait> waits;
  for (size_t i = 0; i < daemons.size(); ++i) {
    const PendingRequest *awaited = daemons[i].Awaited();
    if (awaited == nullptr) continue;
    const auto to = oldest.find(awaited->to);
    waits.push_back({i, to == oldest.end() ? std::nullopt : std::optional(to->second), awaited->to, awaited->type,
                     awaited->ageMs, awaited->waits == daemon::Waits::kPerhaps, false});
  }
  return waits;
}

// Each daemon waits for at most one, so a walk meets at most one cycle. Every daemon is walked over once: walking from
// each as far as it goes would take a hostile list's length squared.
class Cycles {
 public:
  Cycles(std::vector<Wait> &waits, size_t daemons) : waits_(waits), waitOf_(daemons), walk_(daemons) {
    for (size_t i = 0; i < waits.size(); ++i) waitOf_[waits[i].from] = i;
  }

  // The first daemon of each cycle that has lasted.
  std::vector<size_t> Mark() {
    std::vector<size_t> firsts;
    for (size_t i = 0; i < waits_.size(); ++i) {
      if (const auto met = Walk(waits_[i].from, i + 1)) {
        if (MarkFrom(*met)) firsts.push_back(*met);
      }
    }
    return firsts;
  }

 private:
  // The daemon at which the walk came back to itself.
  std::optional<size_t> Walk(size_t start, size_t walk) {
    std::optional<size_t> at = start;
    while (at && walk_[*at] == 0) {
      walk_[*at] = walk;
      const std::optional<size_t> wait = waitOf_[*at];
      at = wait ? waits_[*wait].to : std::nullopt;
    }
    return at && walk_[*at] == walk ? at : std::nullopt;
  }

  bool MarkFrom(size_t start) {
    std::vector<Wait *> members;
    size_t at = start;
    do {
      members.push_back(&waits_[*waitOf_[at]]);
      at = *members.back()->to;
    } while (at != start);
    if (!std::all_of(members.begin(), members.end(), [](const Wait *wait) { return wait->lasts(); })) return false;
    for (Wait *wait : members) wait->inCycle = true;
    return true;
  }

  std::vector<Wait> &waits_;
  std::vector<std::optional<size_t>> waitOf_;  // of each daemon
  std::vector<size_t> walk_;                   // in which each daemon was met; 0: none
};

}  // namespace

bool Wait::lasts() const {
  return ageMs >= kLastingMs;
}

void FindWaits(const Sample &sample, View &view) {
  std::vector<Daemon> daemons;
  for (const Client &client : sample.clients) daemons.push_back(client.daemon);
  view.waits = WaitsOf(daemons);
  for (const size_t first : Cycles(view.waits, daemons.size()).Mark()) {
    view.cycles.push_back(CycleText(FollowWaits(daemons, daemons[first])));
  }
}

}  // namespace zor::busview
