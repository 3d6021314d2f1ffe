#include <zor/event.h>
#include <zor/msg_wire.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "programs/fleet_wire.h"
#include "programs/messages/event.h"
#include "zorctl/bus.h"
#include "zorctl/fleet_stream.h"
#include "zorctl/number_option.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

class ListenVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("MODULE", modules_, "Only events of these modules (or types); all events if omitted").Type("");
    AddLimit(options, limit_, "End after this many events; with status 4 if it times out first");
    options.AddFlag("-v,--verbose", verbose_, "Report on standard error when it has subscribed");
  }

  ExitCode Run(const Common &common) override {
    std::set<uint32_t> types;
    for (const std::string &module : modules_) types.insert(messages::EventTypeOf(module));
    const Deadline deadline = common.deadline();
    daemon::StopSignal stop;
    Bus bus(deadline);
    bus.StopWith(stop);
    Subscribe(bus, types, deadline);
    if (verbose_) std::fputs("zorctl listen: listening\n", stderr);
    uint64_t count = 0;
    while (const std::optional<Message> message = bus.Receive(deadline)) {
      if (!messages::IsEvent(message->type)) continue;
      Print(JsonLine(messages::EventJson(message->type, message->body)));
      Flush();
      if (++count == limit_) return kExitOk;
    }
    if (limit_ == 0 || bus.stopped()) return kExitOk;
    throw TooFew(count);
  }

  ExitCode RunFleet(Fleet &fleet, const Common &common) override {
    std::vector<std::string> topics = {"gap"};
    for (const std::string &module : modules_) topics.push_back("event/" + fleet::Level(module) + "/+");
    if (modules_.empty()) topics.insert(topics.end(), {"event/+/+", "log"});  // log records have numbers too
    const Deadline deadline = common.deadline();
    daemon::StopSignal stop;
    fleet.line().StopWith(stop);
    FleetStream stream(fleet, topics, modules_.empty());
    if (verbose_) std::fputs("zorctl listen: listening\n", stderr);
    uint64_t count = 0;
    const auto onRecord = [&](const StreamRecord &record) {
      PrintRecord(record);
      const bool counts = record.topic.starts_with("event/") && !record.isDouble;
      return !counts || ++count != limit_;
    };
    if (stream.Run(deadline, onRecord) || limit_ == 0 || fleet.line().stopped()) return kExitOk;
    throw TooFew(count);
  }

 private:
  Failure TooFew(uint64_t count) const {
    return {kExitTimeOver, "received " + std::to_string(count) + " of " + std::to_string(limit_) + " events in time",
            "check whether the publisher runs, or increase --timeout"};
  }

  // The gateway is that of the topic, which the broker has checked.
  static void PrintRecord(const StreamRecord &record) {
    if (record.missing > 0) Print(JsonLine(ForeignJson{{"gateway", record.gateway}, {"missing", record.missing}}));
    if (record.topic == "log") return;
    ForeignJson line = record.document;
    line["gateway"] = record.gateway;
    if (record.topic == "gap") line["gap"] = true;
    if (record.isDouble) line["double"] = true;
    Print(JsonLine(line));
  }

  static void Subscribe(Bus &bus, const std::set<uint32_t> &types, const Deadline &deadline) {
    for (const uint32_t type : types) bus.Send({ZOR_MSG_SUBSCRIBE_EVENT, "", type, ""}, deadline);
    if (types.empty()) bus.Send({ZOR_MSG_SUBSCRIBE_EVENT, "", ZOR_EVT_ALL, ""}, deadline);
    bus.CountProcesses(bus.name(), deadline);  // its reply follows the subscription, which gets none of its own
  }

  std::vector<std::string> modules_;
  uint32_t limit_ = 0;
  bool verbose_ = false;
};

}  // namespace

std::unique_ptr<Verb> MakeListenVerb() {
  return std::make_unique<ListenVerb>();
}

}  // namespace zor::ctl
