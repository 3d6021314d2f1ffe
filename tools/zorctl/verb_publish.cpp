#include <zor/event.h>
#include <zor/platform/system.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "programs/messages/body.h"
#include "programs/messages/event.h"
#include "zorctl/bus.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/text.h"
#include "zorctl/value.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kItemBroker[] = "mic";  // receives events that consist of items

// The payload in the option itself, or in the file that it names with "@".
Json PayloadOf(const std::string &word) {
  const bool isFile = word.starts_with('@');
  const Json payload =
      messages::ParsePayload(ParseBytes(isFile ? word.substr(1) : word, isFile ? "file" : "text", kMaxBody));
  if (!payload.is_discarded()) return payload;
  throw Failure(kExitUsage, "the payload is not JSON", "quote it for the shell: --json-payload '{\"port\":1}'");
}

class PublishVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("MODULE", module_, "The module that the event belongs to, or the event's message type")
        .Required()
        .Type("");
    options.Add("EVENT", event_, "The event's name (EventType)").Required().Type("");
    Option items = options.Add("NAME=VALUE", items_, "The event's payload, as texts").Type("");
    options.Add("--json-payload", payload_, "The event's payload, as JSON; @FILE takes it from a file")
        .Excludes(items)
        .Type("TEXT");
  }

  ExitCode Run(const Common &common) override {
    const uint32_t type = messages::EventTypeOf(module_);
    const Outgoing event = messages::IsJsonEvent(type) ? JsonEvent(type) : ItemEvent(type);
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    bus.Send(event, deadline);
    bus.CountProcesses(bus.name(), deadline);  // its reply follows the forwarding of the event
    if (common.json) PrintJson({{"type", type}, {"event", event_}, {"bytes", event.body.size()}});
    return kExitOk;
  }

 private:
  Outgoing JsonEvent(uint32_t type) const {
    Json payload = Json::object();
    for (const auto &[name, value] : ParsePairs(items_)) payload[name] = value;
    if (!payload_.empty()) payload = PayloadOf(payload_);
    const std::string module = messages::EventModuleOf(type);
    const Json event = {{"Method", "notify"},
                        {"Module", module.empty() ? module_ : module},
                        {"EventType", event_},
                        {"Timestamp", ZOR_UTIL_GetCurrUTCTimeStamp()},
                        {"Payload", payload}};
    return {type, "", 0, event.dump(-1, ' ', false, Json::error_handler_t::replace)};
  }

  Outgoing ItemEvent(uint32_t type) const {
    if (!payload_.empty()) {
      throw Failure(kExitUsage, "events of " + Escape(module_) + " carry texts, not JSON", "give NAME=VALUE ...");
    }
    if (items_.empty()) {
      throw Failure(kExitUsage, "an event of " + Escape(module_) + " needs at least one text", "give NAME=VALUE ...");
    }
    messages::Values items = {{"EventType", event_}};
    for (const std::string &word : items_) items.push_back(ParsePair(word));
    return {type, kItemBroker, 0, messages::EncodeItems(items, 0)};
  }

  std::string module_;
  std::string event_;
  std::vector<std::string> items_;
  std::string payload_;
};

}  // namespace

std::unique_ptr<Verb> MakePublishVerb() {
  return std::make_unique<PublishVerb>();
}

}  // namespace zor::ctl
