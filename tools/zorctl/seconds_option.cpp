#include "zorctl/seconds_option.h"

#include <cmath>
#include <cstdlib>
#include <string>
#include "zorctl/options.h"

namespace zor::ctl {
namespace {

constexpr double kMaxTimeoutSeconds = 86400 * 365.0;

std::string CheckSeconds(const std::string &text) {
  char *end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end != '\0' || !(seconds >= 0.001 && seconds <= kMaxTimeoutSeconds)) {
    return "not a time from 0.001 to " + std::to_string(static_cast<long>(kMaxTimeoutSeconds)) + " seconds";
  }
  return {};
}

}  // namespace

Option AddSeconds(Options &options, const char *name, double &seconds, const char *purpose) {
  return options.Add(name, seconds, purpose).Check(CheckSeconds).Type("SECONDS").ShowDefault();
}

Milliseconds FromSeconds(double seconds) {
  return Milliseconds(std::llround(seconds * 1000));
}

}  // namespace zor::ctl
