#include <zor/msg_wire.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "zorctl/bus.h"
#include "zorctl/format.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

constexpr Milliseconds kPollEvery{50};

class ExitVerb : public Verb {
 public:
  void Declare(Options &options) override { options.Add("NAME", name_, "The daemon").Required().Type(""); }

  ExitCode Run(const Common &common) override {
    const std::string field = NameField(name_);
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    const uint32_t before = bus.CountProcesses(name_, deadline);
    if (before == 0) throw bus.NoSuchDaemon(name_);
    bus.Send({ZOR_MSG_SAFE_EXIT, name_, 0, ""}, deadline);
    bus.Send({ZOR_MSG_SAFE_EXIT, "", 0, field}, deadline);  // ends the subscriptions that others made for it
    uint32_t left = bus.CountProcesses(name_, deadline);
    for (; left >= before; left = bus.CountProcesses(name_, deadline)) {
      TakeReply(bus, deadline.Within(kPollEvery));
      if (deadline.over()) throw StillThere(common);
    }
    Report(common, left);
    return kExitOk;
  }

 private:
  // Other messages are ignored.
  void TakeReply(Bus &bus, const Deadline &deadline) {
    while (const std::optional<Message> message = bus.Receive(deadline)) {
      if (message->type == ZOR_MSG_SAFE_EXIT && message->source == name_) reply_ = message->data;
    }
  }

  Failure StillThere(const Common &common) const {
    const std::string there =
        name_ + " is still on the bus after " + AgeText(static_cast<uint64_t>(common.timeout.count()));
    if (!reply_)
      return {kExitTimeOver, there + " and has not replied",
              "it may have no handler for SAFE_EXIT; see zorctl why " + name_};
    if (*reply_ == 0) return {kExitTimeOver, there + ", although it agreed", "increase --timeout"};
    return {kExitRefused, there + "; it replied " + std::to_string(*reply_), "it refuses to leave"};
  }

  // A process of the same name is met next by messages to it, which whoever asked should know.
  void Report(const Common &common, uint32_t others) const {
    if (common.json) {
      PrintJson({{"name", name_}, {"left", true}, {"others", others}});
      return;
    }
    Print(name_ + " has left the bus\n");
    if (others == 0) return;
    Print(others == 1 ? "another daemon of that name stays\n"
                      : std::to_string(others) + " other daemons of that name stay\n");
  }

  std::string name_;
  std::optional<uint32_t> reply_;
};

}  // namespace

std::unique_ptr<Verb> MakeExitVerb() {
  return std::make_unique<ExitVerb>();
}

}  // namespace zor::ctl
