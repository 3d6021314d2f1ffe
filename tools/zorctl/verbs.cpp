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
    {"log", "The user-visible log, and statistics of the logging daemon",
     "  zorctl log --type user,system --level warning --count 20\n"
     "  zorctl log --follow --language zh\n",
     MakeLogVerb},
    {"listen", "Events as they are published, one line of JSON for each",
     "  zorctl listen --limit 1 --timeout 600 lan\n"
     "  zorctl listen | jq .EventType\n",
     MakeListenVerb, 60},
    {"publish", "Publish an event",
     "  zorctl publish lan link port=1 state=up\n"
     "  zorctl publish network lease --json-payload '{\"hosts\":[2,3]}'\n",
     MakePublishVerb},
    {"rest", "A restful request, and its answer",
     "  zorctl rest /api status\n"
     "  zorctl rest /api set '{\"lamp\":1}' --timeout 20\n",
     MakeRestVerb},
    {"notify", "Send a notification to a module, or list the modules that are connected",
     "  zorctl notify --list\n"
     "  zorctl notify web 0x21 ping --sync\n",
     MakeNotifyVerb},
    {"config", "What the configuration store holds",
     "  zorctl config list parameter\n"
     "  zorctl config set parameter 0x70000001 kitchen\n",
     MakeConfigVerb},
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
