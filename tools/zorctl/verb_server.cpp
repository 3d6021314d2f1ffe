#include <zor/control_wire.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "zorctl/bus.h"
#include "zorctl/notify_channel.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::json;

Json RestartMsgsvr(const Deadline &deadline) {
  Bus bus(deadline);
  return bus.ControlJson(ZOR_MSG_CONTROL_RESTART, "", deadline);
}

Json RestartNotifyserver(const Deadline &deadline) {
  return NotifyChannel(deadline).Restart();
}

std::string TimeText(const Json &reply, const char *key) {
  return std::to_string(reply.value(key, uint64_t{0})) + " ms";
}

struct Server {
  std::string_view name;
  Json (*restart)(const Deadline &deadline);
};

constexpr Server kServers[] = {{"msgsvr", RestartMsgsvr}, {"notifyserver", RestartNotifyserver}};

class ServerVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("ACTION", action_, "restart: let the program at the server's path take over, with all clients")
        .Required()
        .Type("");
    options.Add("SERVER", server_, "msgsvr or notifyserver").ShowDefault().Type("");
  }

  ExitCode Run(const Common &common) override {
    const auto *server = std::find_if(std::begin(kServers), std::end(kServers),
                                      [this](const Server &each) { return each.name == server_; });
    if (action_ != "restart") throw Failure(kExitUsage, "no such action: " + Escape(action_), "use restart");
    if (server == std::end(kServers)) {
      throw Failure(kExitUsage, "cannot restart " + Escape(server_), "use msgsvr or notifyserver");
    }
    const Json reply = server->restart(common.deadline());
    if (common.json) {
      PrintJson(reply);
    } else {
      Print(server_ + ": version " + Escape(reply.value("to", "")) + " took over from version " +
            Escape(reply.value("from", "")) + " in " + TimeText(reply, "duration_ms") + ", with a pause of " +
            TimeText(reply, "pause_ms") + "\n");
    }
    return kExitOk;
  }

 private:
  std::string action_;
  std::string server_ = "msgsvr";
};

}  // namespace

std::unique_ptr<Verb> MakeServerVerb() {
  return std::make_unique<ServerVerb>();
}

}  // namespace zor::ctl
