#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

// In the order of --help: looking, talking, setting.
constexpr VerbRow kVerbs[] = {
    {"list", "Who is on the bus",
     "  zorctl list -v\n"
     "  zorctl list --json | jq '.clients[].name'\n",
     MakeListVerb},
    {"exit", "Ask a daemon to leave the bus, and say whether it did",
     "  zorctl exit web\n"
     "  zorctl exit web --timeout 30\n",
     MakeExitVerb},
};

}  // namespace

std::span<const VerbRow> Verbs() {
  return kVerbs;
}

}  // namespace zor::ctl
