// A sample of `top` for pipes and programs.
#ifndef ZORCTL_TOP_REPORT_H
#define ZORCTL_TOP_REPORT_H

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "zorctl/top_data.h"

namespace zor::ctl {

// Lines of text, the columns cut to that width; an empty line ends them.
std::string BatchText(const TopData &data, SortKey sort, const std::string &filter, size_t columns);

// Rates that are unknown are null.
nlohmann::json BatchJson(const TopData &data, SortKey sort, const std::string &filter);

}  // namespace zor::ctl

#endif
