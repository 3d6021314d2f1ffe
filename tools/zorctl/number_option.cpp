#include "zorctl/number_option.h"

#include <CLI/CLI.hpp>
#include <string>

#include "zorctl/number.h"

namespace zor::ctl {
namespace {

std::string TakeLimit(std::string &text) {
  const auto number = ParseNumber(text);
  if (!number || *number == 0) return "not a number of 1 to " + std::to_string(UINT32_MAX);
  text = std::to_string(*number);
  return {};
}

}  // namespace

void AddLimit(CLI::App &app, uint64_t &limit, const char *purpose) {
  app.add_option("--limit", limit, purpose)->transform(CLI::Validator(TakeLimit, ""))->type_name("N");
}

}  // namespace zor::ctl
