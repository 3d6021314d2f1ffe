#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "zorctl/bus.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

constexpr Milliseconds kPollEvery{50};

class WaitVerb : public Verb {
 public:
  void Declare(Options &options) override { options.Add("NAME", names_, "The daemons").Required().Type(""); }

  ExitCode Run(const Common &common) override {
    for (const std::string &name : names_) NameField(name);  // throws Failure for an invalid one
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    std::vector<std::string> missing = names_;
    while (true) {
      std::erase_if(missing, [&](const std::string &name) {
        if (bus.CountProcesses(name, deadline) == 0) return false;
        if (!common.json) Print(name + " is on the bus\n");
        return true;
      });
      if (missing.empty() || deadline.over()) break;
      ShowProgress("waiting for " + Join(missing, ", ") + ", " + std::to_string(deadline.left().count() / 1000) +
                   " s left");
      while (bus.Receive(deadline.Within(kPollEvery))) {
      }
    }
    ShowProgress("");
    if (common.json) PrintJson({{"complete", missing.empty()}, {"missing", missing}});
    if (!missing.empty())
      throw Failure(kExitTimeOver, "not on the bus: " + Join(missing, ", "), "check whether they start");
    return kExitOk;
  }

 private:
  std::vector<std::string> names_;
};

}  // namespace

std::unique_ptr<Verb> MakeWaitVerb() {
  return std::make_unique<WaitVerb>();
}

}  // namespace zor::ctl
