#include "zorctl/number_option.h"

#include <CLI/CLI.hpp>
#include <string>

#include "programs/messages/number.h"

namespace zor::ctl {

CLI::Option *AddNumber(CLI::App &app, const char *name, uint32_t &number, const std::string &purpose, uint32_t least) {
  const auto check = [least](std::string &text) -> std::string {
    const auto parsed = messages::ParseUint32(text);
    if (!parsed || *parsed < least) {
      return "not a number from " + std::to_string(least) + " to " + std::to_string(UINT32_MAX);
    }
    text = std::to_string(*parsed);  // which CLI11 reads alike
    return {};
  };
  return app.add_option(name, number, purpose)->transform(CLI::Validator(check, ""))->type_name("N");
}

void AddLimit(CLI::App &app, uint32_t &limit, const char *purpose) {
  AddNumber(app, "--limit", limit, purpose, 1);
}

}  // namespace zor::ctl
