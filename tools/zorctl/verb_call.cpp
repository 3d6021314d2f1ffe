#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <string>

#include "programs/messages/body.h"
#include "programs/messages/hex.h"
#include "programs/messages/message_types.h"
#include "zorctl/message_options.h"
#include "zorctl/output.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::ordered_json;

// The reply's fields if its type is known, otherwise its data word and body.
Json Explain(const Message &reply) {
  const messages::MessageType *known = messages::FindType(reply.type);
  if (known != nullptr && known->reply != "-") return messages::Decode(known->reply, reply.data, reply.body);
  Json fields = {{"data", reply.data}};
  fields.update(messages::DecodeUnknown(reply.body));
  return fields;
}

void PrintItems(const Json &items) {
  for (const Json &item : items) {
    Print(Escape(item["name"].get<std::string>()) + " = " + Escape(item["value"].get<std::string>()) + "\n");
  }
}

void PrintField(const std::string &name, const Json &value) {
  if (value.is_object() && value.contains("items")) {
    Print("error_code: " + value["error_code"].dump() + "\nsub_type: " + value["sub_type"].dump() + "\n");
    PrintItems(value["items"]);
  } else if (name == "hex") {
    Print(messages::HexDump(messages::ParseHex(value.get<std::string>())));
  } else if (value.is_string()) {
    Print(name + ": " + Escape(value.get<std::string>()) + "\n");
  } else {
    Print(name + ": " + value.dump(value.is_structured() ? 2 : -1, ' ', false, Json::error_handler_t::replace) + "\n");
  }
}

// Whether the reply reports a failure.
bool IsError(const Json &fields) {
  const Json items = fields.value("items", Json::object());
  return fields.value("result", Json(0)) != 0 || (items.is_object() && items.value("error_code", 0u) != 0);
}

class CallVerb : public Verb {
 public:
  void Declare(CLI::App &app) override { options_.Declare(app); }

  ExitCode Run(const Common &common) override {
    const Outgoing request = options_.Build();
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    const Message reply = bus.Request(request, deadline);
    const Json fields = Explain(reply);
    if (common.json) {
      PrintJson(Json{{"type", reply.type},
                     {"name", messages::TypeText(reply.type)},
                     {"source", reply.source},
                     {"fields", fields}});
    } else {
      for (const auto &[name, value] : fields.items()) PrintField(name, value);
    }
    return IsError(fields) ? kExitRefused : kExitOk;
  }

 private:
  MessageOptions options_;
};

}  // namespace

std::unique_ptr<Verb> MakeCallVerb() {
  return std::make_unique<CallVerb>();
}

}  // namespace zor::ctl
