#include "zorctl/seconds_option.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <string>

namespace zor::ctl {
namespace {

constexpr double kMaxTimeoutSeconds = 86400 * 365.0;

std::string CheckSeconds(const std::string &text) {
  double seconds = 0;
  if (!CLI::detail::lexical_cast(text, seconds) || !(seconds >= 0.001 && seconds <= kMaxTimeoutSeconds)) {
    return "not a time from 0.001 to " + std::to_string(static_cast<long>(kMaxTimeoutSeconds)) + " seconds";
  }
  return {};
}

}  // namespace

CLI::Option *AddSeconds(CLI::App &app, const char *name, double &seconds, const char *purpose) {
  return app.add_option(name, seconds, purpose)
      ->check(CLI::Validator(CheckSeconds, ""))
      ->type_name("SECONDS")
      ->capture_default_str();
}

Milliseconds FromSeconds(double seconds) {
  return Milliseconds(std::llround(seconds * 1000));
}

}  // namespace zor::ctl
