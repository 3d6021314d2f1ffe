#include <zor/event.h>
#include <zor/platform/system.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "programs/messages/body.h"
#include "programs/messages/event.h"
#include "programs/types/book.h"
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
  Json payload = messages::ParsePayload(ParseBytes(isFile ? word.substr(1) : word, isFile ? "file" : "text", kMaxBody));
  if (!payload.is_discarded()) return payload;
  throw Failure(kExitUsage, "the payload is not JSON", "quote it for the shell: --json-payload '{\"port\":1}'");
}

class PublishVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("MODULE", module_, "The module that the event belongs to, or the event's message type")
        .Required()
        .Type("");
    options.Add("EVENT", event_, "The event's name (EventType); not with the name of a described event as MODULE")
        .Type("");
    Option items = options
                       .Add("FIELD", items_,
                            "NAME=VALUE ...: the event's payload, of a described event as its fields, "
                            "otherwise as texts; or one JSON object")
                       .Type("");
    options.Add("--json-payload", payload_, "The event's payload, as JSON; @FILE takes it from a file")
        .Excludes(items)
        .Type("TEXT");
  }

  ExitCode Run(const Common &common) override {
    const uint32_t type = TakeWords();
    const Outgoing event = messages::IsJsonEvent(type) ? JsonEvent(type) : ItemEvent(type);
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    bus.Send(event, deadline);
    bus.CountProcesses(bus.name(), deadline);  // its reply follows the forwarding of the event
    if (common.json) PrintJson({{"type", type}, {"event", event_}, {"bytes", event.body.size()}});
    return kExitOk;
  }

 private:
  // The event's type. The name of a described event stands for its module and its name.
  uint32_t TakeWords() {
    types::TypeBook &book = types::TypeBook::Installed();
    const std::vector<const types::Type *> named = FindDescribed();
    if (!named.empty()) {
      described_ = named.front();
      if (!event_.empty()) items_.insert(items_.begin(), event_);
      event_ = described_->event;
      if (!described_->module.empty()) module_ = described_->module;
      return described_->first;
    }
    if (event_.empty()) throw Failure(kExitUsage, "EVENT is required", "zorctl publish --help explains it");
    const uint32_t type = messages::EventTypeOf(module_);
    described_ = book.FindEvent(type, event_);
    return type;
  }

  // The library's modules come first.
  std::vector<const types::Type *> FindDescribed() const {
    if (ZOR_EVT_GetMsgTypeByEventModuleName(module_.c_str()) != ZOR_EVT_ALL) return {};
    std::vector<const types::Type *> named = types::TypeBook::Installed().Named(module_);
    std::erase_if(named, [](const types::Type *each) { return each->event.empty(); });
    return named;
  }

  Json Payload() const {
    if (!payload_.empty()) return PayloadOf(payload_);
    const bool isObject = items_.size() == 1 && items_.front().starts_with('{');
    if (isObject) return PayloadOf(items_.front());
    Json payload = Json::object();
    if (described_ == nullptr) {
      for (const auto &[name, value] : ParsePairs(items_)) payload[name] = value;
      return payload;
    }
    const messages::Content content = messages::Encode(described_->requestShape(), ParsePairs(items_));
    return content.body.empty() ? payload : messages::ParsePayload(content.body);
  }

  Outgoing JsonEvent(uint32_t type) const {
    Json payload = Payload();
    if (described_ != nullptr && payload.is_object()) {
      payload = messages::ParsePayload(messages::EncodeJson(described_->requestShape(), payload).body);
      if (payload.is_discarded()) payload = Json::object();
    }
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

  const types::Type *described_ = nullptr;
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
