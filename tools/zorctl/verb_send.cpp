#include <nlohmann/json.hpp>

#include "programs/messages/message_types.h"
#include "zorctl/message_options.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

class SendVerb : public Verb {
 public:
  void Declare(Options &options) override { options_.Declare(options); }

  ExitCode Run(const Common &common) override {
    const Outgoing message = options_.Build();
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    bus.SendAndCheck(message, deadline);
    if (common.json) PrintJson({{"type", message.type}, {"name", messages::TypeText(message.type)}, {"sent", true}});
    return kExitOk;
  }

 private:
  MessageOptions options_;
};

}  // namespace

std::unique_ptr<Verb> MakeSendVerb() {
  return std::make_unique<SendVerb>();
}

}  // namespace zor::ctl
