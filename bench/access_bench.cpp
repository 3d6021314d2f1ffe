// What a server pays for asking the rules, beside the bare relay's round trip of 64 bytes, in which it would ask twice.
#include <cstdio>
#include <string>
#include <vector>

#include "bare_relay.h"
#include "harness.h"
#include "programs/access/guard.h"

namespace {

using namespace zor::bench;
using namespace zor::access;

constexpr std::size_t kRuleCount = 100;
constexpr std::size_t kCalls = 200000;
constexpr std::size_t kRoundTrips = 4000;
constexpr std::size_t kPeers = 20;

// The rule that allows what is asked is the last one: half concern other users, half other types or names.
Rules ManyRules() {
  std::string text;
  for (std::size_t i = 1; i < kRuleCount; ++i) {
    text += i % 2 == 0 ? "deny = user:" + std::to_string(1000 + i) + " unit:a.service send 0x5009 to cms\n"
                       : "deny = user:7 send 0x6000-0x" + std::to_string(6000 + i) + ",0x7001 to w" +
                             std::to_string(i) + "*\n";
  }
  std::vector<std::string> mistakes;
  auto rules = Rules::FromText(text + "allow = user:7 send 0x4000-0x5FFF to *\n", "f", Accounts::OfSystem(), mistakes);
  Require(rules && rules->list().size() == kRuleCount, "the rules are sound");
  return std::move(*rules);
}

Identity Peer(std::size_t number) {
  Identity identity;
  identity.user = 7;
  identity.groups = {7, 100};
  identity.unit = "unit" + std::to_string(number) + ".service";
  return identity;
}

// One of many peers sends one of several types to one of several names, over and over.
double TimeAsk(Guard &guard, const std::vector<Guard::Subject> &subjects, std::size_t types) {
  const std::string_view kNames[] = {"cms", "web", "syslog", "lctrl"};
  std::size_t turn = 0;
  return TimeAll(kCalls, [&] {
    ++turn;
    const Action action = {Verb::kSend, 0x4000 + static_cast<std::uint32_t>(turn % types), kNames[turn & 3]};
    Require(guard.Ask(subjects[turn % subjects.size()], action).passes, "it is allowed");
  });
}

}  // namespace

int main() {
  PinToOneProcessor();
  Guard guard(ManyRules());
  std::vector<Guard::Subject> subjects;
  for (std::size_t i = 0; i < kPeers; ++i) subjects.push_back(guard.Admit(Peer(i)));
  BareRelay relay(64, 2048, "/tmp");
  std::vector<double> known, unknown, share, unknownShare, trips;
  for (int round = 0; round < kRounds; ++round) {
    const double trip = TimeAll(kRoundTrips, [&] { relay.Call(); });
    known.push_back(TimeAsk(guard, subjects, 5));
    unknown.push_back(TimeAsk(guard, subjects, 7919));
    trips.push_back(trip);
    share.push_back(200 * known.back() / trip);
    unknownShare.push_back(200 * unknown.back() / trip);
  }
  std::printf("rules of access, %zu of them; bare round trip of 64 bytes: %.1f us\n", kRuleCount, Median(trips) / 1e3);
  std::printf("%-44s %7.0f ns, two are %5.2f %% of it\n", "a decision that is known", Median(known), Median(share));
  std::printf("%-44s %7.0f ns, two are %5.2f %% of it\n", "one that is not", Median(unknown), Median(unknownShare));
}
