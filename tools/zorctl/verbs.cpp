#include "zorctl/verbs.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace zor::ctl {
namespace {

constexpr double kBootSeconds = 30;
// More than a successor has for its trial.
constexpr double kRestartSeconds = 15;
constexpr double kScriptSeconds = 10;
constexpr double kBundleSeconds = 60;

// In the order of --help.
constexpr VerbRow kAllVerbs[] = {
    {"list", "List the daemons on the bus",
     "  zorctl list -v\n"
     "  zorctl list --json | jq '.clients[].name'\n",
     MakeListVerb, kDefaultTimeoutSeconds, "", Reach::kBoth},
    {"send", "Send a one-way message",
     "  zorctl send DB_SAVE user=0\n"
     "  zorctl send 0x61001 web --data 7 --text hello\n",
     MakeSendVerb, kDefaultTimeoutSeconds, "types names nothing"},
    {"call", "Send a request and print the reply",
     "  zorctl call GET_PROCESS_NUM daemon=web\n"
     "  zorctl call DM cms --subtype 1 --item device=lamp\n",
     MakeCallVerb, kDefaultTimeoutSeconds, "types names nothing", Reach::kBoth},
    {"wait", "Wait until daemons are on the bus",
     "  zorctl wait cms syslog\n"
     "  zorctl wait web --timeout 120 && zorctl call 0x4001 web\n",
     MakeWaitVerb, kBootSeconds, "names"},
    {"why", "Explain why a daemon does not reply: its unread messages, and which daemons wait for each other",
     "  zorctl why web\n"
     "  zorctl why --all --json | jq -r '.chains[].verdict'\n",
     MakeWhyVerb, kDefaultTimeoutSeconds, "names", Reach::kBoth},
    {"introspect", "List what a daemon handles: from itself, from the type files and from the message server",
     "  zorctl introspect web\n"
     "  zorctl introspect web --json | jq '.handles[].name'\n",
     MakeIntrospectVerb, kDefaultTimeoutSeconds, "names nothing"},
    {"types", "Check, list and explain the files that describe message types",
     "  zorctl types lint acme.json\n"
     "  zorctl types show DB_SAVE\n",
     MakeTypesVerb, kDefaultTimeoutSeconds, "lint|list|show|dissector types", Reach::kNeither},
    {"top", "Show the bus live: the busiest daemons, who talks to whom, and who waits",
     "  zorctl top\n"
     "  zorctl top --batch --count 1 --sort waiting\n",
     MakeTopVerb},
    {"graph", "Print the bus as a picture: who talks to whom, and who waits",
     "  zorctl graph --svg > bus.svg\n"
     "  zorctl graph | dot -Tpdf > bus.pdf\n",
     MakeGraphVerb},
    {"metrics", "Print measurements of the bus in the format OpenMetrics",
     "  zorctl metrics\n"
     "  zorctl metrics --fleet mqtts://broker.example > fleet.prom\n",
     MakeMetricsVerb, kDefaultTimeoutSeconds, "", Reach::kBoth},
    {"bundle", "Collect what a ticket needs in one archive, without secrets and addresses",
     "  zorctl bundle\n"
     "  zorctl bundle /tmp/ticket-4711.tar.zst --limit 4000000\n",
     MakeBundleVerb, kBundleSeconds, "nothing"},
    {"monitor", "Print a copy of the traffic as lines, JSON or a capture; ends after --timeout, --limit or Ctrl-C",
     "  zorctl monitor --name web --timeout 10\n"
     "  zorctl monitor --type 0x5000-0x50FF --pcapng bus.pcapng\n",
     MakeMonitorVerb, 60},
    {"recorder",
     "Print the latest traffic that the message server has recorded, or what it had recorded before a crash",
     "  zorctl recorder --limit 50\n"
     "  zorctl recorder /var/lib/zor/msgsvr.recorder.1 --pcapng crash.pcapng\n",
     MakeRecorderVerb},
    {"replay", "Send messages of a capture once more; only of the types that are named, and none that were truncated",
     "  zorctl replay bus.pcapng --type 0x4000-0x40FF\n"
     "  zorctl replay bus.pcapng --type DB_SAVE --speed 10\n",
     MakeReplayVerb, 3600, "nothing"},
    {"serve", "Be a daemon whose requests a script answers",
     "  zorctl serve 0x4001 clock --exec /usr/bin/date\n"
     "  zorctl serve 0x4001 greeter --exec ./greet.sh --at-once 1 --timeout 2\n",
     MakeServeVerb, kScriptSeconds, "types names nothing"},
    {"log", "Print the log that users see, or a statistic of the logging daemon",
     "  zorctl log --type user,system --level warning --count 20\n"
     "  zorctl log --follow --language zh\n",
     MakeLogVerb, kDefaultTimeoutSeconds, "", Reach::kBoth},
    {"mlog", "Print the log that developers see, which mlogserver keeps, with the time of day",
     "  zorctl mlog --follow --daemon web\n"
     "  zorctl mlog --since 10m --level warning --grep 'lease|dhcp'\n",
     MakeMlogVerb},
    {"listen", "Print events as they are published, one line of JSON each",
     "  zorctl listen --limit 1 --timeout 600 lan\n"
     "  zorctl listen | jq .EventType\n",
     MakeListenVerb, 60, "modules", Reach::kBoth},
    {"publish", "Publish an event",
     "  zorctl publish lan link port=1 state=up\n"
     "  zorctl publish network lease --json-payload '{\"hosts\":[2,3]}'\n",
     MakePublishVerb, kDefaultTimeoutSeconds, "modules nothing"},
    {"rest", "Send a restful request and print the reply",
     "  zorctl rest /api status\n"
     "  zorctl rest /api set '{\"lamp\":1}' --timeout 20\n",
     MakeRestVerb},
    {"notify", "Send a notification to a module, or list the modules that are connected",
     "  zorctl notify --list\n"
     "  zorctl notify web 0x21 ping --sync\n",
     MakeNotifyVerb},
    {"config", "List, read and set values of the configuration store",
     "  zorctl config list parameter\n"
     "  zorctl config set parameter 0x70000001 kitchen\n",
     MakeConfigVerb},
    {"exit", "Ask a daemon to leave the bus, and report whether it did",
     "  zorctl exit web\n"
     "  zorctl exit web --timeout 30\n",
     MakeExitVerb, kDefaultTimeoutSeconds, "names"},
    {"trace", "Show, set or clear the trace settings that a daemon receives when it registers",
     "  zorctl trace set web msg=debug all=error --output file\n"
     "  zorctl trace clear web\n",
     MakeTraceVerb, kDefaultTimeoutSeconds, "nothing names nothing"},
    {"access", "Explain, check and write the rules of who may do what",
     "  zorctl access explain user:web own cms\n"
     "  zorctl access test 50-web.conf\n",
     MakeAccessVerb, kDefaultTimeoutSeconds,
     "explain any|user:|group:|unit:|exe:|board:|own|serve|send|publish|subscribe|post|control|module"},
    {"gateways", "List the gateways of a fleet: which are online, since when, and what is unwell",
     "  zorctl gateways --fleet mqtts://broker.example --unwell\n"
     "  zorctl gateways --json --gateway 'north-*' | jq -r .gateway\n",
     MakeGatewaysVerb, kDefaultTimeoutSeconds, "", Reach::kFleet},
    {"server", "Restart the message server or the notification server; its clients stay connected",
     "  zorctl server restart\n"
     "  zorctl server restart notifyserver\n",
     MakeServerVerb, kRestartSeconds, "restart| msgsvr|notifyserver"},
    {"complete", "List completions of a word of a command line",
     "  zorctl complete types\n"
     "  zorctl complete line exit \"\"\n",
     MakeCompleteVerb, kDefaultTimeoutSeconds, "what", Reach::kNeither},
    {"help", "Explain a verb, as its option --help does",
     "  zorctl help monitor\n"
     "  zorctl help\n",
     MakeHelpVerb, kDefaultTimeoutSeconds, "verbs nothing", Reach::kNeither},
};

// Those of a device with little flash: what shows whether it works, and what sets it. Nothing refers to the others
// there, so they are left out of the program.
constexpr std::string_view kFewVerbs[] = {"list",   "send", "call",   "wait",    "why",  "monitor",
                                          "log",    "mlog", "listen", "publish", "rest", "notify",
                                          "config", "exit", "trace",  "server",  "help"};

constexpr bool IsWanted(const VerbRow &row) {
  return ZORCTL_ALL_VERBS != 0 ||
         std::find(std::begin(kFewVerbs), std::end(kFewVerbs), std::string_view(row.name)) != std::end(kFewVerbs);
}

constexpr auto kVerbs = [] {
  std::array<VerbRow, std::count_if(std::begin(kAllVerbs), std::end(kAllVerbs), IsWanted)> rows{};
  std::copy_if(std::begin(kAllVerbs), std::end(kAllVerbs), rows.begin(), IsWanted);
  return rows;
}();

}  // namespace

ExitCode Verb::RunFleet(Fleet &, const Common &) {
  throw Failure(kExitUsage, "works on this gateway only", "leave out --fleet");
}

std::span<const VerbRow> Verbs() {
  return kVerbs;
}

}  // namespace zor::ctl
