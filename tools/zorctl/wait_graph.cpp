#include "zorctl/wait_graph.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace zor::ctl {
namespace {

struct ProcessState {
  char letter;
  std::string_view text;
  std::string_view verdict;  // for those that cannot go on by themselves
};

constexpr std::array kStates = {
    ProcessState{'R', "running", ""},
    ProcessState{'S', "sleeping", ""},
    ProcessState{'I', "idle", ""},
    ProcessState{'D', "in the kernel", "is held up in the kernel, by a disk or a device"},
    ProcessState{'T', "stopped", "is stopped (SIGCONT lets it go on)"},
    ProcessState{'t', "traced", "is held by a debugger"},
    ProcessState{'Z', "zombie", "has ended, and its parent has not noticed"},
    ProcessState{'X', "dead", "has ended"},
};

const ProcessState *FindState(char letter) {
  const auto found =
      std::find_if(kStates.begin(), kStates.end(), [&](const auto &each) { return each.letter == letter; });
  return found == kStates.end() ? nullptr : &*found;
}

std::string Counted(uint64_t count, bool atLeast, const std::string &noun, const std::string &verb) {
  const bool one = count == 1 && !atLeast;
  return (atLeast ? "at least " : "") + std::to_string(count) + " " + noun + (one ? " " + verb + "s" : "s " + verb);
}

std::string Waiting(const Daemon &daemon) {
  return Counted(daemon.unread, daemon.unreadAtLeast, "message", "wait") + " for it";
}

// What is the matter with a daemon that waits for nobody; empty when nothing is.
std::string Trouble(const Daemon &daemon) {
  const ProcessState *state = FindState(daemon.state);
  if (state != nullptr && !state->verdict.empty()) {
    const std::string verdict(state->verdict);
    return daemon.unread == 0 ? verdict
                              : verdict + ": " + Waiting(daemon) + ", the oldest for " + AgeText(daemon.unreadMs);
  }
  if (daemon.unread == 0) return "";
  return "has not read for " + AgeText(daemon.unreadMs) + ": " + Waiting(daemon);
}

std::string VerdictOnOne(const Daemon &daemon, const RequestsTo &asked) {
  const std::string trouble = Trouble(daemon);
  if (!trouble.empty()) return daemon.name + " " + trouble;
  if (asked.count == 0) return "nothing waits for " + daemon.name + ", and it waits for nobody";
  return daemon.name +
         " has read its messages and waits for nobody: " + Counted(asked.count, false, "request", "wait") +
         " for its answer, the oldest for " + AgeText(asked.oldestMs);
}

}  // namespace

const Daemon *FindDaemon(const std::vector<Daemon> &daemons, std::string_view name) {
  const auto found =
      std::find_if(daemons.begin(), daemons.end(), [&](const Daemon &each) { return each.name == name; });
  return found == daemons.end() ? nullptr : &*found;
}

WaitChain FollowWaits(const std::vector<Daemon> &daemons, const Daemon &start) {
  WaitChain chain{{&start}, {}, {}};
  while (!chain.daemons.back()->pending.empty()) {
    const PendingRequest &request = chain.daemons.back()->pending.back();
    const Daemon *next = FindDaemon(daemons, request.to);
    if (next == nullptr) {
      chain.absent = request.to;
      break;
    }
    const auto before = std::find(chain.daemons.begin(), chain.daemons.end(), next);
    if (before != chain.daemons.end()) {
      chain.cycle = static_cast<size_t>(before - chain.daemons.begin());
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
      if (request.to != name) continue;
      ++requests.count;
      requests.oldestMs = std::max(requests.oldestMs, request.ageMs);
    }
  }
  return requests;
}

std::string Verdict(const WaitChain &chain, const RequestsTo &asked) {
  const Daemon &last = *chain.daemons.back();
  if (chain.daemons.size() == 1 && !chain.absent && !chain.cycle) return VerdictOnOne(last, asked);
  std::string text = chain.daemons.front()->name;
  std::string_view link = " waits for ";
  for (size_t i = 1; i < chain.daemons.size(); ++i) {
    text.append(link).append(chain.daemons[i]->name);
    link = ", which waits for ";
  }
  if (chain.cycle)
    return text.append(link) + chain.daemons[*chain.cycle]->name + ": a cycle, in which nobody can go on";
  if (chain.absent == "") return text + (chain.daemons.size() > 1 ? ", which" : "") + " waits at a barrier";
  if (chain.absent) return text.append(link) + *chain.absent + ", which is not on the bus";
  const std::string trouble = Trouble(last);
  if (!trouble.empty()) return text + ", which " + trouble;
  const uint64_t age = chain.daemons[chain.daemons.size() - 2]->pending.back().ageMs;
  return text + ", which has read its messages and waits for nobody, but has not answered for " + AgeText(age);
}

std::string_view StateText(char state) {
  const ProcessState *found = FindState(state);
  return found == nullptr ? "unknown" : found->text;
}

std::string AgeText(uint64_t milliseconds) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f s", static_cast<double>(milliseconds) / 1000);
  return text.data();
}

}  // namespace zor::ctl
