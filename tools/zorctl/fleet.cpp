#include "zorctl/fleet.h"

#include <algorithm>
#include <map>
#include <utility>

#include "programs/fleet_wire.h"
#include "programs/messages/json_text.h"
#include "zorctl/exit_code.h"
#include "zorctl/format.h"
#include "zorctl/pattern.h"
#include "zorctl/progress.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

using std::chrono::milliseconds;

// How often a gateway publishes its status that does not say so, and at least.
constexpr uint64_t kStatusSeconds = 60;
constexpr uint64_t kMostStatusSeconds = 86400;
// Verbs that watch have longer time-outs than a broker needs, and a reply may be wanted in less.
constexpr Milliseconds kLeastForBroker{5000};
constexpr Milliseconds kMostForBroker{20'000};
// Brokers in a cluster may deliver retained messages a little later than the message that follows them. What gateways
// publish meanwhile does not count: a large fleet is never quiet.
constexpr Milliseconds kQuiet{100};

// How old a status may get: two may be lost.
milliseconds StatusLife(const ForeignJson &status) {
  const uint64_t every = CountOf(status, "every_s");
  return std::chrono::seconds(3 * (every == 0 ? kStatusSeconds : std::min(every, kMostStatusSeconds)));
}

}  // namespace

bool Gateway::online() const {
  return MemberOf(presence, "online") == true;
}

std::string Gateway::state() const {
  if (presence.is_null()) return "unknown";
  if (online()) return "online";
  return TextOf(presence, "reason") == "stopped" ? "stopped" : "lost";
}

std::optional<milliseconds> Gateway::statusAge() const {
  const auto time = TimeOf(status, "time");
  if (!time) return std::nullopt;
  return std::max(std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::now() - *time), milliseconds(0));
}

std::vector<std::string> Gateway::unwell() const {
  std::vector<std::string> sentences = TextsOf(status, "unwell");
  sentences.insert(sentences.end(), faults.begin(), faults.end());
  if (state() == "lost") sentences.emplace_back("the line was lost");
  if (!online()) return sentences;
  const auto age = statusAge();
  if (!age) sentences.emplace_back("no status");
  if (age > StatusLife(status)) sentences.push_back("the status is " + LongAgeText(*age) + " old");
  return sentences;
}

Fleet::Fleet(const FleetAccess &access, FleetScope scope, Milliseconds timeout)
    : access_(access), scope_(std::move(scope)), timeout_(timeout), line_(OpenFleetLine(access_, brokerDeadline())) {}

Deadline Fleet::brokerDeadline() const {
  return Deadline(std::clamp(timeout_, kLeastForBroker, kMostForBroker));
}

bool Fleet::isForOne() const {
  return scope_.gateways.size() == 1 && !IsPattern(scope_.gateways.front());
}

std::string Fleet::TopicOf(const std::string &gateway, const std::string &rest) const {
  return access_.prefix + "/" + fleet::Level(gateway) + "/" + rest;
}

std::vector<std::string> Fleet::Filters(std::string_view rest) const {
  std::vector<std::string> filters;
  const bool all = scope_.gateways.empty() || std::any_of(scope_.gateways.begin(), scope_.gateways.end(), IsPattern);
  if (all) filters.push_back(access_.prefix + "/+/" + std::string(rest));
  for (const std::string &gateway : scope_.gateways) {
    if (!all) filters.push_back(TopicOf(gateway, std::string(rest)));
  }
  return filters;
}

std::optional<FleetPlace> Fleet::PlaceOf(std::string_view topic) const {
  if (!topic.starts_with(access_.prefix + "/")) return std::nullopt;
  topic.remove_prefix(access_.prefix.size() + 1);
  const size_t end = topic.find('/');
  if (end > fleet::kMostLevelBytes) return std::nullopt;  // no name ends there, or it is longer than a gateway's
  const std::string_view level = topic.substr(0, end);
  const std::string name = fleet::NameOf(level).value_or(std::string(level));
  const bool wanted = scope_.gateways.empty() || std::any_of(scope_.gateways.begin(), scope_.gateways.end(),
                                                             [&](const auto &each) { return Matches(each, name); });
  if (!wanted) return std::nullopt;
  return FleetPlace{name, topic.substr(end + 1)};
}

std::string Fleet::replyTopic() const {
  return "answers/" + line_->name();
}

void Fleet::AwaitReplies() {
  if (std::exchange(awaitsReplies_, true)) return;
  line_->Subscribe({replyTopic()}, 1, brokerDeadline());
}

namespace {

// A retained message of a gateway. Its author may be anybody: what cannot be used is named.
void Store(const FleetPlace &place, const std::string &payload, bool withBus, Gateway &gateway) {
  const bool isPresence = place.rest == "presence";
  ForeignJson document = messages::ParseJson(payload);
  const bool valid = document.is_object() && (!isPresence || MemberOf(document, "online").is_boolean());
  if (!valid) {
    gateway.faults.push_back("malformed " + std::string(place.rest));
    return;
  }
  if (!withBus) document.erase("bus");  // the largest part, for every gateway of a fleet
  (isPresence ? gateway.presence : gateway.status) = std::move(document);
}

}  // namespace

// The message that this session sends to itself follows the retained ones.
std::vector<Gateway> Fleet::Survey(Need need) {
  std::map<std::string, Gateway> found;
  for (const std::string &each : scope_.gateways) {
    if (!IsPattern(each)) found[each].name = each;
  }
  AwaitReplies();
  std::vector<std::string> filters = Filters("presence");
  if (need != Need::kPresence) {
    for (std::string &filter : Filters("status")) filters.push_back(std::move(filter));
  }
  line_->Subscribe(filters, 0, brokerDeadline());
  line_->Publish({replyTopic(), "{}", "", "end of survey", 0});
  Progress progress;
  std::optional<Deadline> end;
  for (;;) {
    if (end && end->over()) break;
    const auto delivery = line_->Receive(end.value_or(brokerDeadline()));
    if (!delivery && end) break;
    if (!delivery) {
      throw Failure(kExitTimeOver, "the broker does not deliver what it has retained", "check whether it is busy");
    }
    CheckRefusal(*delivery);
    if (delivery->topic == replyTopic() || (end && delivery->retained)) end = Deadline(kQuiet);
    const auto place = PlaceOf(delivery->topic);
    if (!place || delivery->payload.empty() || (place->rest != "presence" && place->rest != "status")) continue;
    Gateway &gateway = found[place->gateway];
    gateway.name = place->gateway;
    Store(*place, delivery->payload, need == Need::kBus, gateway);
    progress.Show(found.size(), 0, "gateways");
  }
  std::vector<Gateway> gateways;
  gateways.reserve(found.size());
  for (auto &[name, gateway] : found) gateways.push_back(std::move(gateway));
  return gateways;
}

// Why the message to this session itself was not delivered.
void Fleet::CheckRefusal(const FleetDelivery &delivery) const {
  if (delivery.refusal.empty()) return;
  throw Failure(kExitRefused, "the broker refused a message to " + replyTopic() + ": " + delivery.refusal,
                "let its access list allow users of this tool to publish and subscribe there");
}

}  // namespace zor::ctl
