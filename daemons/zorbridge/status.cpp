#include "zorbridge/status.h"

#include <malloc.h>
#include <zor/control_wire.h>
#include <zor/uv_timer.h>

#include <algorithm>
#include <utility>

#include "programs/bus_request.h"
#include "programs/format_number.h"
#include "programs/limits.h"
#include "programs/version.h"
#include "zorbridge/time_text.h"

namespace zor::bridge {
namespace {

using namespace limits::zorbridge;  // NOLINT(google-build-using-namespace): its own limits
using Json = nlohmann::ordered_json;

constexpr uint64_t kNearlyFull = 80;  // percent
constexpr std::chrono::minutes kRecentLineEnd{5};

uint64_t MsOf(std::chrono::system_clock::time_point time) {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count());
}

// What the message server says of itself and of the daemons, those that fit.
Json BusOf(std::string_view list) {
  Json parsed = Json::parse(list, nullptr, false);
  Json bus = Json::object();
  if (!parsed.is_object() || !parsed.contains("server")) return bus;
  bus["server"] = std::move(parsed["server"]);
  Json &daemons = bus["daemons"] = Json::array();
  size_t size = 0;
  for (Json &each : parsed["clients"]) {
    size += each.dump(-1, ' ', false, Json::error_handler_t::replace).size() + 1;
    if (size > kStatusList) {
      bus["cut"] = true;
      break;
    }
    daemons.push_back(std::move(each));
  }
  return bus;
}

std::optional<std::string> ProblemOf(const ZOR_MSG_HEAD *reply) {
  if (reply == nullptr) return "the message server does not answer";
  if (reply->data == ZOR_CONTROL_OK) return std::nullopt;
  if (reply->data == ZOR_CONTROL_REFUSED) return "the rules of access do not allow the bridge the list of daemons";
  return "the message server gives no list of daemons";
}

void AddSlowDaemons(const Json &bus, std::vector<std::string> &unwell) {
  constexpr auto kLongest = std::chrono::duration_cast<std::chrono::milliseconds>(kUnreadTime);
  if (!bus.contains("daemons")) return;
  for (const Json &each : bus["daemons"]) {
    const auto ms = each.value("waiting", Json::object()).value("oldest_ms", uint64_t{0});
    if (ms < static_cast<uint64_t>(kLongest.count())) continue;
    unwell.push_back("daemon " + each.value("name", "") + ": has not read for " + std::to_string(ms / 1000) + " s");
  }
}

}  // namespace

Status::Status(const BridgeSettings &settings, Uplink &uplink, const Outbox &outbox, const BrokerLink &link,
               const Requests &requests)
    : settings_(settings), uplink_(uplink), outbox_(outbox), link_(link), requests_(requests) {}

bool Status::Start() {
  const auto due = [](void *status) { static_cast<Status *>(status)->Publish(); };
  return ZOR_UTIL_TimerAdd(static_cast<uint32_t>(settings_.statusTime.count()), 0, due, this) != nullptr;
}

void Status::Publish() {
  if (!link_.connected()) return;
  Make([this](std::string document) { uplink_.Document("status", std::move(document)); });
}

void Status::Make(const std::function<void(std::string document)> &then) {
  const auto onList = [this, then](const ZOR_MSG_HEAD *reply, daemon::NoReply) {
    const auto problem = ProblemOf(reply);
    then(Document(problem ? Json() : BusOf(daemon::BodyOf(*reply)), problem));
    ::malloc_trim(0);  // the list of a large bus takes far more memory than the bridge itself
  };
  daemon::AskBus({"", ZOR_MSG_CONTROL_LIST, 0, ""}, kListTime, onList);
}

std::string Status::Document(const Json &bus, const std::optional<std::string> &problem) const {
  const auto uptime = std::chrono::steady_clock::now() - started_;
  const Outbox::Figures queue = outbox_.figures();
  const BrokerLink::Figures &line = link_.figures();
  const Requests::Figures &requests = requests_.figures();
  const Json document = {
      {"schema", 1},
      {"gateway", uplink_.gateway()},
      {"time", TimeText(UnixMs())},
      {"version", daemon::Version()},
      {"every_s", settings_.statusTime.count()},
      {"uptime_s", std::chrono::duration_cast<std::chrono::seconds>(uptime).count()},
      {"unwell", Unwell(bus, problem)},
      {"queue",
       {{"records", queue.records},
        {"bytes", queue.bytes},
        {"limit_bytes", settings_.queueBytes},
        {"oldest", queue.oldest ? Json(*queue.oldest) : Json()},
        {"given_up", queue.givenUp},
        {"written_today_bytes", queue.writtenToday},
        {"daily_bytes", settings_.dailyBytes}}},
      {"line",
       {{"broker", line.broker},
        {"since", line.since ? Json(TimeText(static_cast<int64_t>(MsOf(*line.since)))) : Json()},
        {"connects", line.connects},
        {"failures", line.failures},
        {"dropped", uplink_.dropped()}}},
      {"requests", {{"served", requests.served}, {"failed", requests.failed}, {"dropped", requests.dropped}}},
      {"missed_events", missed_},
      {"bus", bus}};
  return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::vector<std::string> Status::Unwell(const Json &bus, const std::optional<std::string> &problem) const {
  std::vector<std::string> unwell;
  const Outbox::Figures queue = outbox_.figures();
  if (const uint64_t percent = queue.bytes * 100 / settings_.queueBytes; percent >= kNearlyFull) {
    unwell.push_back("queue: " + std::to_string(percent) + " % full");
  }
  if (queue.writesUsedUp) unwell.emplace_back("queue: the day's writes are used up");
  if (!queue.problem.empty()) unwell.push_back("queue: " + queue.problem);
  if (lineEndAt_ && std::chrono::steady_clock::now() - *lineEndAt_ < kRecentLineEnd) {
    unwell.push_back("line: it has ended lately: " + lineEnd_);
  }
  if (busLost_) {
    unwell.emplace_back("bus: the message server has gone");
  } else if (problem) {
    unwell.push_back("bus: " + *problem);
  }
  AddSlowDaemons(bus, unwell);
  return unwell;
}

void Status::OnBusLost() {
  busLost_ = true;
  Publish();
}

void Status::OnRejoined() {
  busLost_ = false;
  Publish();
}

void Status::OnDisconnected(const std::string &why) {
  lineEnd_ = why;
  lineEndAt_ = std::chrono::steady_clock::now();
}

}  // namespace zor::bridge
