#include <string>

#include "zorctl/options.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

// Only what is asked about itself gets here: the command line turns the rest into --help of the verb.
class HelpVerb : public Verb {
 public:
  void Declare(Options &options) override { options.Add("VERB", verb_, "The verb; all by default").Type(""); }

  ExitCode Run(const Common &) override { throw Failure(kExitUsage, "options before the verb", "give only a verb"); }

 private:
  std::string verb_;
};

}  // namespace

std::unique_ptr<Verb> MakeHelpVerb() {
  return std::make_unique<HelpVerb>();
}

}  // namespace zor::ctl
