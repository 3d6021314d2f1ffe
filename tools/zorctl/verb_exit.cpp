#include <zor/msg_wire.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "zorctl/bus.h"
#include "zorctl/format.h"
#include "zorctl/output.h"
#include "zorctl/verbs.h"
#include "zorctl/wait_graph.h"

namespace zor::ctl {
namespace {

constexpr Milliseconds kPollEvery{50};

class ExitVerb : public Verb {
 public:
  void Declare(CLI::App &app) override { app.add_option("NAME", name_, "The daemon")->required()->type_name(""); }

  ExitCode Run(const Common &common) override {
    const std::string field = NameField(name_);
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    const uint32_t before = bus.CountProcesses(name_, deadline);
    if (before == 0) throw NoSuchDaemon(name_);
    bus.Send({ZOR_MSG_SAFE_EXIT, name_, 0, ""}, deadline);
    bus.Send({ZOR_MSG_SAFE_EXIT, "", 0, field}, deadline);  // so that what others subscribed for it ends too
    while (bus.CountProcesses(name_, deadline) >= before) {
      TakeAnswer(bus, deadline.Within(kPollEvery));
      if (deadline.over()) throw StillThere(common);
    }
    Report(common);
    return kExitOk;
  }

 private:
  // Whatever else comes is not ours to handle.
  void TakeAnswer(Bus &bus, const Deadline &deadline) {
    while (const std::optional<Message> message = bus.Receive(deadline)) {
      if (message->type == ZOR_MSG_SAFE_EXIT && message->source == name_) answer_ = message->data;
    }
  }

  Failure StillThere(const Common &common) const {
    const std::string there = name_ + " is still there after " + AgeText(static_cast<uint64_t>(common.timeout.count()));
    if (!answer_)
      return {kExitTimeOver, there + " and has not answered",
              "it may have no handler of SAFE_EXIT, or zorctl why " + name_ + " tells more"};
    if (*answer_ == 0) return {kExitTimeOver, there + ", although it agreed", "give it more --timeout"};
    return {kExitRefused, there + "; it answered " + std::to_string(*answer_), "it does not want to leave"};
  }

  void Report(const Common &common) const {
    if (common.json) {
      PrintJson({{"name", name_}, {"left", true}});
    } else {
      Print(name_ + " has left the bus\n");
    }
  }

  std::string name_;
  std::optional<uint32_t> answer_;
};

}  // namespace

std::unique_ptr<Verb> MakeExitVerb() {
  return std::make_unique<ExitVerb>();
}

}  // namespace zor::ctl
