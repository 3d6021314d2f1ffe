#include <zor/notifyclt.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "programs/messages/number.h"
#include "zorctl/format.h"
#include "zorctl/notify_channel.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/table.h"
#include "zorctl/text.h"
#include "zorctl/value.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::json;
using Align = Table::Align;

// An id without a name, so that no other module's notifications arrive here.
constexpr char kOwnModule[] = "102";

std::string ModuleName(uint32_t module) {
  const char *name = ZOR_NOTIFYCLT_GetNameByMID(module);
  return name == nullptr ? std::to_string(module) : name;
}

uint32_t ModuleOf(const std::string &word) {
  if (const uint32_t module = ZOR_NOTIFYCLT_GetMIDByName(word.c_str()); module != 0) return module;
  const std::optional<uint32_t> number = messages::ParseUint32(word);
  const bool isModule = number && *number >= ZOR_NOTIFY_MID_FIRST && *number <= ZOR_NOTIFY_MID_LAST;
  if (isModule && *number != ZOR_NOTIFY_MID_SERVER) return *number;
  throw Failure(kExitNotFound, "unknown module " + Escape(word),
                "give a name that zorctl notify --list shows, or 1 to 102");
}

bool IsConnected(const Json &list, uint32_t module) {
  const Json clients = list.value("clients", Json::array());
  return std::any_of(clients.begin(), clients.end(),
                     [module](const Json &client) { return client.value("module", 0u) == module; });
}

class NotifyVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("MODULE", module_, "The module, by name or number").Type("");
    options.Add("TYPE", type_, "The notification's type, a number").Type("");
    options.Add("DATA", part1_, "The data").Type("");
    options.Add("DATA2", part2_, "The second part of the data of an asynchronous notification").Type("");
    AddFormatOption(options, format_);
    options.AddFlag("--sync", sync_, "Wait for the reply and print it");
    options.Add("--from", from_, "The module to send as").Type("MODULE").ShowDefault();
    options.AddFlag("--list", list_, "List the connected modules instead");
  }

  ExitCode Run(const Common &common) override {
    if (list_) return List(common);
    CheckArguments();
    const uint32_t module = ModuleOf(module_);
    const uint32_t type = messages::RequireUint32(type_, "TYPE");
    const uint32_t from = ModuleOf(from_);
    const std::string part1 = Bytes(part1_);
    const std::string part2 = Bytes(part2_);
    NotifyChannel channel(common.deadline());
    CheckConnected(channel, module);
    channel.Register(from);
    if (sync_) {
      PrintReply(channel.Request(module, type, part1), common);
    } else {
      channel.Post(module, type, part1, part2);
      // The reply comes after the notification has been forwarded. No module has the server's own id.
      channel.Request(ZOR_NOTIFY_MID_SERVER, type, {});
      if (common.json) PrintJson({{"module", module}, {"type", type}, {"bytes", part1.size() + part2.size()}});
    }
    return kExitOk;
  }

 private:
  ExitCode List(const Common &common) const {
    if (!module_.empty()) throw Failure(kExitUsage, "--list takes no module", "leave it out");
    const Json reply = NotifyChannel(common.deadline()).List();
    if (common.json) {
      PrintJson(reply);
      return kExitOk;
    }
    Table table({{"MODULE"},
                 {"ID", Align::kRight},
                 {"PID", Align::kRight, 1},
                 {"USER", Align::kLeft, 2},
                 {"SINCE", Align::kLeft, 3},
                 {"WAITING", Align::kRight},
                 {"PENDING", Align::kRight},
                 {"IN", Align::kRight},
                 {"OUT", Align::kRight},
                 {"DROPPED", Align::kRight}});
    for (const Json &client : reply.value("clients", Json::array())) table.Add(RowOf(client));
    table.Print();
    return kExitOk;
  }

  static Table::Row RowOf(const Json &client) {
    const auto count = [&client](const char *key) { return std::to_string(client.value(key, uint64_t{0})); };
    const Json waiting = client.value("waiting", Json::object());
    return {ModuleName(client.value("module", 0u)),
            count("module"),
            count("pid"),
            UserName(client.value("uid", uid_t{0})),
            LocalTimeText(client.value("since", std::time_t{0})),
            std::to_string(waiting.value("bytes", uint64_t{0}) + waiting.value("socket", uint64_t{0})),
            std::to_string(client.value("pending", Json::array()).size()),
            count("in"),
            count("out"),
            count("dropped")};
  }

  void CheckArguments() const {
    if (module_.empty() || type_.empty()) {
      throw Failure(kExitUsage, "MODULE and TYPE are required, or --list", "zorctl notify --help explains it");
    }
    if (sync_ && !part2_.empty()) {
      throw Failure(kExitUsage, "a synchronous notification has one part", "leave out --sync or the second part");
    }
  }

  std::string Bytes(const std::string &part) const {
    return part.empty() ? part : ParseBytes(part, format_, ZOR_NOTIFY_DATA_MAX);
  }

  // The server does not report absent modules, and only some users may list them.
  static void CheckConnected(NotifyChannel &channel, uint32_t module) {
    try {
      if (IsConnected(channel.List(), module)) return;
    } catch (const Failure &failure) {
      if (failure.code != kExitRefused) throw;
      return;
    }
    throw Failure(kExitNotFound, "module " + ModuleName(module) + " is not connected",
                  "zorctl notify --list shows the connected ones");
  }

  static void PrintReply(const std::string &reply, const Common &common) {
    if (common.json) {
      PrintJson(BytesJson(reply));
    } else if (!reply.empty()) {
      Print(ShowBytes(reply) + "\n");
    }
  }

  std::string module_;
  std::string type_;
  std::string part1_;
  std::string part2_;
  std::string format_ = "text";
  bool sync_ = false;
  std::string from_ = kOwnModule;
  bool list_ = false;
};

}  // namespace

std::unique_ptr<Verb> MakeNotifyVerb() {
  return std::make_unique<NotifyVerb>();
}

}  // namespace zor::ctl
