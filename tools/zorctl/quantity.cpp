#include "zorctl/quantity.h"

#include <array>
#include <cstdio>

namespace zor::ctl {
namespace {

struct Unit {
  double size;
  const char *letter;
};
constexpr std::array kUnits = {Unit{1e15, "P"}, Unit{1e12, "T"}, Unit{1e9, "G"}, Unit{1e6, "M"}, Unit{1e3, "k"}};

// Beyond it numbers are shortened.
constexpr double kSixDigits = 999'999.5;

std::string Decimals(double number, int decimals) {
  std::array<char, 64> text;
  const int length = std::snprintf(text.data(), text.size(), "%.*f", decimals, number);
  return {text.data(), static_cast<size_t>(length)};
}

// From that number on with a unit.
std::string Short(double number, double from) {
  if (number < from) return Decimals(number, 0);
  constexpr double kRounded = 0.99995;  // "1.0M" and not "1000.0k"
  for (const Unit &unit : kUnits) {
    if (number >= unit.size * kRounded) return Decimals(number / unit.size, 1) + unit.letter;
  }
  return Decimals(number, 0);
}

}  // namespace

std::string RateText(const std::optional<double> &rate) {
  constexpr double kLeast = 0.05, kWithDecimal = 9.95;
  if (!rate) return "-";
  if (*rate < kLeast) return "0";
  return *rate < kWithDecimal ? Decimals(*rate, 1) : Short(*rate, kSixDigits);
}

std::string BytesText(const std::optional<double> &bytes) {
  constexpr double kThreeDigits = 999.5;
  return bytes ? Short(*bytes, kThreeDigits) : "-";
}

std::string CountText(uint64_t count) {
  return Short(static_cast<double>(count), kSixDigits);
}

std::string PercentText(const std::optional<double> &share) {
  return share ? Decimals(*share * 100, 1) : "-";
}

}  // namespace zor::ctl
