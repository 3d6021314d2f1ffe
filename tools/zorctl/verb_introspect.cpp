// What a daemon handles, from three sources: the daemon itself, if it replies; the type files, which say what should go
// to it; and the message server, which knows its subscriptions. Each line names its sources, since they may differ.
#include <zor/control_wire.h>
#include <zor/introspect_wire.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "programs/messages/event.h"
#include "programs/messages/json_text.h"
#include "programs/messages/message_types.h"
#include "programs/types/book.h"
#include "zorctl/bus.h"
#include "zorctl/foreign_json.h"
#include "zorctl/format.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/table.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::ordered_json;

// A daemon that replies does so from its loop; one that does not know the request never does.
constexpr Milliseconds kPatience{1000};

constexpr char kItself[] = "itself", kFile[] = "type file", kServer[] = "server";

struct Handled {
  std::string kind;
  std::string name;
  std::set<std::string> sources;
};

std::optional<uint32_t> TypeOf(const Json &object) {
  const Json &type = MemberOf(object, "type");
  if (!type.is_number_unsigned() || type.get<uint64_t>() > ZOR_MSG_TYPE_MASK) return std::nullopt;
  return type.get<uint32_t>();
}

std::string SourcesText(const std::set<std::string> &sources) {
  return Join({sources.begin(), sources.end()}, ", ");
}

class IntrospectVerb : public Verb {
 public:
  void Declare(Options &options) override { options.Add("NAME", name_, "The daemon").Required().Type(""); }

  ExitCode Run(const Common &common) override {
    NameField(name_);  // throws Failure for an invalid one
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    if (bus.CountProcesses(name_, deadline) == 0) throw bus.NoSuchDaemon(name_);
    AskTypeFiles();
    AskServer(bus, deadline);
    AskItself(bus, Deadline(std::min(common.timeout, kPatience)));
    common.json ? PrintAsJson() : PrintAsText();
    return kExitOk;
  }

 private:
  void AskTypeFiles() {
    for (const types::Type *type : types::TypeBook::Installed().All()) {
      const bool isHandled = type->kind == types::Kind::kRequest || type->kind == types::Kind::kOneway;
      if (!isHandled || type->to != name_ || type->isRange()) continue;
      handled_[type->first] = {std::string(KindText(type->kind)), messages::TypeText(*type), {kFile}};
    }
  }

  // Only operators may see it.
  void AskServer(Bus &bus, const Deadline &deadline) {
    try {
      const Json list = bus.ControlJson(ZOR_MSG_CONTROL_LIST, "", deadline);
      for (const Json &client : MemberOf(list, "clients")) {
        if (TextOf(client, "name") == name_) AddClient(client);
      }
    } catch (const Failure &failure) {
      if (failure.code != kExitRefused) throw;
      serverProblem_ = failure.what();
    }
  }

  void AddClient(const Json &client) {
    for (const Json &event : MemberOf(client, "events")) {
      if (event.is_number_unsigned()) events_[event.get<uint32_t>()].insert(kServer);
    }
    for (const Json &pattern : MemberOf(client, "patterns")) {
      if (pattern.is_string()) patterns_.insert(pattern.get<std::string>());
    }
  }

  void AskItself(Bus &bus, const Deadline &deadline) {
    Json reply;
    try {
      const Message message = bus.Request({ZOR_MSG_INTROSPECT, name_, 0, ""}, deadline);
      reply = messages::ParseJson(message.body.substr(0, message.body.find('\0')));
    } catch (const Failure &failure) {
      if (failure.code != kExitTimeOver) throw;
      return;
    }
    if (!reply.is_object()) return;
    replied_ = true;
    face_ = TextOf(reply, "face");
    if (const Json &pid = MemberOf(reply, "pid"); pid.is_number_unsigned()) pid_ = pid.get<uint64_t>();
    for (const Json &each : MemberOf(reply, "handles")) AddHandled(each);
    for (const Json &each : MemberOf(reply, "events")) {
      if (const auto type = TypeOf(each)) events_[*type].insert(kItself);
    }
  }

  void AddHandled(const Json &each) {
    const std::optional<uint32_t> type = TypeOf(each);
    if (!type) return;
    Handled &handled = handled_[*type];
    handled.sources.insert(kItself);
    if (handled.kind.empty()) handled.kind = TextOf(each, "kind");
    if (!handled.name.empty()) return;
    const types::Type *known = messages::FindType(*type);
    handled.name = known == nullptr ? TextOf(each, "name") : messages::TypeText(*known);
  }

  void PrintAsText() const {
    if (replied_) {
      Print(Escape(name_) + ": face " + Escape(face_.empty() ? "unknown" : face_) +
            (pid_ == 0 ? "" : ", process " + std::to_string(pid_)) + "\n");
    } else {
      Print(Escape(name_) + " did not reply: only daemons of the C++, Python and Lua faces know the request\n");
    }
    if (!serverProblem_.empty()) Print("subscriptions: " + Escape(serverProblem_) + "\n");
    if (handled_.empty() && events_.empty() && patterns_.empty()) return;
    Table table({{"TYPE"}, {"NAME"}, {"KIND"}, {"KNOWN FROM"}});
    for (const auto &[type, each] : handled_) {
      table.Add({HexText(type), each.name.empty() ? "-" : each.name, each.kind.empty() ? "-" : each.kind,
                 SourcesText(each.sources)});
    }
    for (const auto &[type, sources] : events_) {
      table.Add({HexText(type), EventName(type), "event", SourcesText(sources)});
    }
    for (const std::string &pattern : patterns_) table.Add({"-", pattern, "restful", kServer});
    Print("\n");
    table.Print();
  }

  void PrintAsJson() const {
    Json handles = Json::array(), events = Json::array();
    for (const auto &[type, each] : handled_) {
      handles.push_back({{"type", type}, {"name", each.name}, {"kind", each.kind}, {"sources", each.sources}});
    }
    for (const auto &[type, sources] : events_) {
      events.push_back({{"type", type}, {"name", EventName(type)}, {"sources", sources}});
    }
    PrintJson({{"name", name_},
               {"replied", replied_},
               {"face", face_},
               {"pid", pid_},
               {"handles", handles},
               {"events", events},
               {"patterns", patterns_}});
  }

  static std::string EventName(uint32_t type) {
    const std::string module = messages::EventModuleOf(type);
    return type == ZOR_MSG_EVENT_FIRST ? "all" : module.empty() ? "-" : module;
  }

  std::string name_, face_, serverProblem_;
  uint64_t pid_ = 0;
  bool replied_ = false;
  std::map<uint32_t, Handled> handled_;
  std::map<uint32_t, std::set<std::string>> events_;
  std::set<std::string> patterns_;
};

}  // namespace

std::unique_ptr<Verb> MakeIntrospectVerb() {
  return std::make_unique<IntrospectVerb>();
}

}  // namespace zor::ctl
