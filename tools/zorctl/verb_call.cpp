#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "programs/messages/base64.h"
#include "programs/messages/body.h"
#include "programs/messages/json_text.h"
#include "programs/messages/message_types.h"
#include "zorctl/fleet_report.h"
#include "zorctl/fleet_requests.h"
#include "zorctl/message_options.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/reply_fields.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::ordered_json;

// An error reply of a daemon that is written with one of the faces: a status, and a text that says more.
std::optional<Json> ExplainError(const Message &reply) {
  constexpr uint32_t kFirst = 0x10000, kLast = 0x1FFFF;
  if (reply.data < kFirst || reply.data > kLast) return std::nullopt;
  const Json body = messages::ParseJson(reply.body.substr(0, reply.body.find('\0')));
  if (!MemberOf(body, "error").is_string()) return std::nullopt;
  Json fields = {{"data", reply.data}};
  fields.update(body);
  return fields;
}

// The reply's fields if its type is known, otherwise its data word and body.
Json Explain(const Message &reply) {
  if (const auto error = ExplainError(reply)) return *error;
  const types::Type *known = messages::FindType(reply.type);
  if (known != nullptr && !known->reply.empty()) return messages::Decode(known->replyShape(), reply.data, reply.body);
  Json fields = {{"data", reply.data}};
  fields.update(messages::DecodeUnknown(reply.body));
  return fields;
}

class CallVerb : public Verb {
 public:
  void Declare(Options &options) override { options_.Declare(options); }

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
                     {"fields", FieldsJson(fields)}});
    } else {
      PrintFields(fields);
    }
    return IsError(fields) || ExplainError(reply) ? kExitRefused : kExitOk;
  }

  ExitCode RunFleet(Fleet &fleet, const Common &common) override {
    const FleetCall call = options_.BuildForFleet();
    const std::vector<Gateway> gateways = fleet.Survey(Fleet::Need::kPresence);
    FleetReport report(fleet, common.json, gateways);
    FleetRequests requests(fleet, call.topic, call.payload);
    bool failed = false;
    requests.Run(gateways, report.sum(), [&](const FleetAnswer &answer) {
      report.Add(answer, [&] {
        const Json fields = FieldsOf(answer.reply);
        failed = failed || IsError(fields);
        PrintDone(report, answer, fields);
      });
    });
    const ExitCode code = report.Finish();
    return code == kExitOk && failed ? kExitRefused : code;
  }

 private:
  // What a done reply holds besides its envelope; bytes of an unknown shape as digits.
  static Json FieldsOf(const Json &reply) {
    const Json &known = MemberOf(reply, "fields");
    if (known.is_object()) return known;
    Json fields = Json::object();
    for (const auto &[name, value] : reply.items()) {
      if (name != "schema" && name != "gateway" && name != "result" && name != "base64") fields[name] = value;
    }
    const auto bytes = messages::ParseBase64(TextOf(reply, "base64"));
    if (bytes) fields.update(messages::DecodeUnknown(*bytes));
    return fields;
  }

  static void PrintDone(const FleetReport &report, const FleetAnswer &answer, const Json &fields) {
    if (report.json()) {
      Print(JsonLine(Json{{"gateway", answer.gateway}, {"result", "done"}, {"fields", FieldsJson(fields)}}));
    } else if (report.isForOne()) {
      PrintFields(fields);
    } else {
      report.PrintLine(answer.gateway, FieldsLine(fields));
    }
  }

  MessageOptions options_;
};

}  // namespace

std::unique_ptr<Verb> MakeCallVerb() {
  return std::make_unique<CallVerb>();
}

}  // namespace zor::ctl
