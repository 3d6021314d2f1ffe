#include "zorctl/fleet_arguments.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "zorctl/number_option.h"
#include "zorctl/options.h"

namespace zor::ctl {
namespace {

struct TextOption {
  const char *name;
  std::string FleetOptions::*value;
  const char *type;
  const char *help;
};

constexpr std::array kOptions = {
    TextOption{"--fleet", &FleetOptions::url, "URL",
               "Work on gateways through their broker: mqtt://[USER@]HOST[:PORT][/PREFIX] or mqtts://... (ZOR_FLEET)"},
    TextOption{"--ca", &FleetOptions::authority, "FILE", "Who may vouch for the broker, in PEM (ZOR_FLEET_CA)"},
    TextOption{"--cert", &FleetOptions::certificate, "FILE", "This user's certificate, in PEM (ZOR_FLEET_CERT)"},
    TextOption{"--key", &FleetOptions::key, "FILE", "Its key (ZOR_FLEET_KEY)"},
    TextOption{"--password-file", &FleetOptions::passwordFile, "FILE",
               "The password of the URL's user (ZOR_FLEET_PASSWORD_FILE)"}};

constexpr std::array kOthers = {std::string_view("--gateway"), std::string_view("--parallel")};

bool IsFleetOption(std::string_view word) {
  const std::string_view name = word.substr(0, word.find('='));
  return std::any_of(kOptions.begin(), kOptions.end(), [=](const TextOption &each) { return each.name == name; }) ||
         std::find(kOthers.begin(), kOthers.end(), name) != kOthers.end();
}

}  // namespace

void FleetArguments::Declare(Options &options, Reach reach) {
  const bool shown = reach == Reach::kBoth || reach == Reach::kFleet;
  for (const TextOption &each : kOptions) {
    options.Add(each.name, options_.*each.value, each.help).Type(each.type).Group(shown ? "On a fleet" : "");
    if (!shown) return;
  }
  options.Add("--gateway", scope_.gateways, "Only these gateways: names, or patterns with * and ?; repeatable")
      .Type("NAME")
      .Repeatable()
      .Group("On a fleet");
  AddNumber(options, "--parallel", scope_.parallel, "Requests that may be under way at one time", 1)
      .ShowDefault()
      .Group("On a fleet");
}

bool FleetArguments::wanted() const {
  const char *variable = std::getenv("ZOR_FLEET");
  return !options_.url.empty() || !scope_.gateways.empty() || (variable != nullptr && *variable != '\0');
}

Fleet FleetArguments::Open(Milliseconds timeout) const {
  return {AccessOf(CompleteFleetOptions(options_)), scope_, timeout};
}

size_t FleetWordsAt(std::string_view word) {
  if (!IsFleetOption(word)) return 0;
  return word.find('=') == word.npos ? 2 : 1;
}

size_t CountFleetWords(const std::vector<std::string> &words) {
  size_t count = 0;
  while (count < words.size() && IsFleetOption(words[count])) count += FleetWordsAt(words[count]);
  return std::min(count, words.size());
}

}  // namespace zor::ctl
