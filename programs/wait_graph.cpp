#include "programs/wait_graph.h"

#include <algorithm>
#include <array>
#include <unordered_map>
#include <utility>

#include "programs/format_number.h"
#include "programs/message_kind.h"

namespace zor::daemon {
namespace {

struct ProcessStateText {
  char letter;
  std::string_view text;
  std::string_view verdict;  // for those that cannot resume by themselves
};

// A live reader has drained anything this old.
constexpr uint64_t kReadingMs = 1000;

constexpr std::array kStates = {
    ProcessStateText{'R', "running", ""},
    ProcessStateText{'S', "sleeping", ""},
    ProcessStateText{'I', "idle", ""},
    ProcessStateText{'D', "in the kernel", "is blocked in the kernel, by a disk or a device"},
    ProcessStateText{'T', "stopped", "is stopped (SIGCONT resumes it)"},
    ProcessStateText{'t', "traced", "is stopped by a debugger"},
    ProcessStateText{'Z', "zombie", "has exited, and its parent has not reaped it"},
    ProcessStateText{'X', "dead", "has exited"},
};

const ProcessStateText *FindState(char letter) {
  const auto found =
      std::find_if(kStates.begin(), kStates.end(), [&](const auto &each) { return each.letter == letter; });
  return found == kStates.end() ? nullptr : &*found;
}

std::string Counted(uint64_t count, const std::string &noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string UnreadText(const Daemon &daemon) {
  return (daemon.unreadAtLeast ? "at least " : "") + Counted(daemon.unread, "unread message");
}

// Why a daemon that waits for no other is stuck; empty if it is not.
std::string Trouble(const Daemon &daemon) {
  const ProcessStateText *state = FindState(daemon.state);
  if (state != nullptr && !state->verdict.empty()) {
    std::string verdict(state->verdict);
    if (daemon.unread == 0) return verdict;
    return verdict + ": " + UnreadText(daemon) + ", the oldest " + AgeText(daemon.unreadMs) + " old";
  }
  if (daemon.unread == 0) return "";
  return "has not read for " + AgeText(daemon.unreadMs) + ": " + UnreadText(daemon);
}

// What a verdict assumes about unknown types; empty without any.
std::string Assumption(const std::set<uint32_t> &types) {
  std::string text;
  for (const uint32_t type : types) {
    text += (text.empty() ? "; assuming that " : type == *types.rbegin() ? " and " : ", ") + HexText(type);
  }
  return types.empty() ? "" : text + (types.size() == 1 ? " is a request" : " are requests");
}

std::string VerdictOnOne(const Daemon &daemon, const RequestsTo &asked) {
  const std::string trouble = Trouble(daemon);
  if (!trouble.empty()) return daemon.name + " " + trouble;
  if (asked.count > 0) {
    return daemon.name + " has read its messages and waits for no daemon, but has not replied to " +
           Counted(asked.count, "request") + ", the oldest " + AgeText(asked.oldestMs) + " old" +
           Assumption(asked.doubtful);
  }
  const std::string idle = daemon.name + " is idle: no daemon waits for it, and it waits for no daemon";
  return daemon.pending.empty() ? idle : idle + ", although its own requests have no reply yet";
}

// How long no daemon in the cycle has sent a request.
uint64_t CycleMs(const WaitChain &chain) {
  uint64_t youngest = UINT64_MAX;
  for (size_t i = *chain.cycle; i < chain.daemons.size(); ++i) {
    youngest = std::min(youngest, chain.daemons[i]->Awaited()->ageMs);
  }
  return youngest;
}

// The unknown types among the requests that daemons of the chain, from that one on, wait for.
std::set<uint32_t> DoubtfulTypes(const WaitChain &chain, size_t first) {
  std::set<uint32_t> types;
  for (size_t i = first; i < chain.daemons.size(); ++i) {
    const PendingRequest *awaited = chain.daemons[i]->Awaited();
    if (awaited != nullptr && awaited->waits == Waits::kPerhaps) types.insert(awaited->type);
  }
  return types;
}

// FindDaemon for many names: a hostile list of daemons can make a chain as long as itself.
class NameIndex {
 public:
  explicit NameIndex(const std::vector<Daemon> &daemons) {
    for (const Daemon &each : daemons) byName_.emplace(each.name, &each);
  }
  const Daemon *Find(std::string_view name) const {
    const auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : found->second;
  }

 private:
  std::unordered_map<std::string_view, const Daemon *> byName_;
};

// How the chain ends.
std::string End(const WaitChain &chain, std::string_view link) {
  const Daemon &last = *chain.daemons.back();
  if (chain.cycle) {
    return std::string(link) + chain.daemons[*chain.cycle]->name + ": a cycle, blocked for " + AgeText(CycleMs(chain));
  }
  if (chain.absent == "") return std::string(chain.daemons.size() > 1 ? ", which" : "") + " waits at a barrier";
  if (chain.absent) return std::string(link) + *chain.absent + ", which is not on the bus";
  const std::string trouble = Trouble(last);
  if (!trouble.empty()) return ", which " + trouble;
  const uint64_t age = chain.daemons[chain.daemons.size() - 2]->Awaited()->ageMs;
  return ", which has read its messages and waits for no daemon, but has not replied for " + AgeText(age);
}

}  // namespace

std::optional<Waits> WaitsForReply(uint32_t type, bool latest, bool inLoop) {
  const MessageKind kind = KindOf(type);
  if (kind == MessageKind::kNoRequest) return std::nullopt;
  if (!latest || inLoop) return Waits::kNo;
  return kind == MessageKind::kRequest ? Waits::kYes : Waits::kPerhaps;
}

const PendingRequest *Daemon::Awaited() const {
  const ProcessStateText *known = FindState(state);
  if ((known != nullptr && !known->verdict.empty()) || (unread > 0 && unreadMs >= kReadingMs)) return nullptr;
  const auto found =
      std::find_if(pending.begin(), pending.end(), [](const auto &each) { return each.waits != Waits::kNo; });
  return found == pending.end() ? nullptr : &*found;
}

const Daemon *FindDaemon(const std::vector<Daemon> &daemons, std::string_view name) {
  const auto found =
      std::find_if(daemons.begin(), daemons.end(), [&](const Daemon &each) { return each.name == name; });
  return found == daemons.end() ? nullptr : &*found;
}

WaitChain FollowWaits(const std::vector<Daemon> &daemons, const Daemon &start) {
  WaitChain chain{{&start}, {}, {}};
  const PendingRequest *request = start.Awaited();
  if (request == nullptr) return chain;
  const NameIndex byName(daemons);
  std::unordered_map<const Daemon *, size_t> places = {{&start, 0}};
  for (; request != nullptr; request = chain.daemons.back()->Awaited()) {
    const Daemon *next = byName.Find(request->to);
    if (next == nullptr) {
      chain.absent = request->to;
      break;
    }
    const auto [place, isNew] = places.emplace(next, chain.daemons.size());
    if (!isNew) {
      chain.cycle = place->second;
      break;
    }
    chain.daemons.push_back(next);
  }
  return chain;
}

RequestsTo CountRequestsTo(const std::vector<Daemon> &daemons, std::string_view name) {
  RequestsTo requests;
  for (const Daemon &each : daemons) {
    for (const PendingRequest &request : each.pending) {
      if (request.to != name || request.waits == Waits::kNo) continue;
      ++requests.count;
      requests.oldestMs = std::max(requests.oldestMs, request.ageMs);
      if (request.waits == Waits::kPerhaps) requests.doubtful.insert(request.type);
    }
  }
  return requests;
}

std::string Verdict(const WaitChain &chain, const RequestsTo &asked) {
  const Daemon &first = *chain.daemons.front();
  if (chain.daemons.size() == 1 && !chain.absent && !chain.cycle) return VerdictOnOne(first, asked);
  std::string text = first.name;
  std::string_view link = " waits for ";
  for (const Daemon *daemon : chain.daemons) {
    if (daemon != &first) text.append(std::exchange(link, ", which waits for ")).append(daemon->name);
  }
  return text + End(chain, link) + Assumption(DoubtfulTypes(chain, 0));
}

std::string CycleText(const WaitChain &chain) {
  std::string text;
  for (size_t i = *chain.cycle; i < chain.daemons.size(); ++i) {
    const PendingRequest &awaited = *chain.daemons[i]->Awaited();
    text += (text.empty() ? chain.daemons[i]->name : ", which") + " waits for " + awaited.to + " (" +
            HexText(awaited.type) + ")";
  }
  return text + ": a cycle, blocked for " + AgeText(CycleMs(chain)) + Assumption(DoubtfulTypes(chain, *chain.cycle));
}

std::string_view WaitsText(Waits waits) {
  if (waits == Waits::kNo) return "no";
  return waits == Waits::kYes ? "yes" : "perhaps";
}

std::string_view StateText(char state) {
  const ProcessStateText *found = FindState(state);
  return found == nullptr ? "unknown" : found->text;
}

}  // namespace zor::daemon
