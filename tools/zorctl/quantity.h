// Rates and amounts as short texts, for columns of few characters.
#ifndef ZORCTL_QUANTITY_H
#define ZORCTL_QUANTITY_H

#include <cstdint>
#include <optional>
#include <string>

namespace zor::ctl {

// "0", "0.5", "812", "145000", "1.5M"; "-" for an unknown one.
std::string RateText(const std::optional<double> &rate);

// "4", "145000", "1.5M".
std::string CountText(uint64_t count);

// Bytes: "812", "18.2k", "1.5M"; "-" for an unknown amount.
std::string BytesText(const std::optional<double> &bytes);

// A share as a percentage with a decimal: "61.0"; "-" for an unknown one.
std::string PercentText(const std::optional<double> &share);

}  // namespace zor::ctl

#endif
