#include "zorctl/number_option.h"

#include <string>

#include "programs/messages/number.h"
#include "zorctl/options.h"

namespace zor::ctl {

Option AddNumber(Options &options, const char *name, uint32_t &number, const std::string &purpose, uint32_t least) {
  const auto check = [least](std::string &text) -> std::string {
    const auto parsed = messages::ParseUint32(text);
    if (!parsed || *parsed < least) {
      return "not a number from " + std::to_string(least) + " to " + std::to_string(UINT32_MAX);
    }
    text = std::to_string(*parsed);  // which CLI11 reads alike
    return {};
  };
  return options.Add(name, number, purpose).Check(check).Type("N");
}

void AddLimit(Options &options, uint32_t &limit, const char *purpose) {
  AddNumber(options, "--limit", limit, purpose, 1);
}

}  // namespace zor::ctl
