#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

// In the order of --help: looking, talking, setting.
constexpr VerbRow kVerbs[] = {
    {"list", "Who is on the bus",
     "  zorctl list -v\n"
     "  zorctl list --json | jq '.clients[].name'\n",
     MakeListVerb},
    {"why", "Why a daemon does not answer: what it has not read, and who waits for whom",
     "  zorctl why web\n"
     "  zorctl why web --json | jq -r .verdict\n",
     MakeWhyVerb},
    {"exit", "Ask a daemon to leave the bus, and say whether it did",
     "  zorctl exit web\n"
     "  zorctl exit web --timeout 30\n",
     MakeExitVerb},
    {"trace", "The trace settings that a daemon gets when it registers: show, set and clear them",
     "  zorctl trace set web msg=debug all=error --output file\n"
     "  zorctl trace clear web\n",
     MakeTraceVerb},
};

}  // namespace

std::span<const VerbRow> Verbs() {
  return kVerbs;
}

}  // namespace zor::ctl
