// The lines above the table of `top`: the bus as a whole, its busiest pairs, and what is wrong.
#ifndef ZORCTL_TOP_SUMMARY_H
#define ZORCTL_TOP_SUMMARY_H

#include "zorctl/screen_line.h"
#include "zorctl/top_data.h"

namespace zor::ctl {

Screen SummaryOf(const TopData &data, size_t columns);

}  // namespace zor::ctl

#endif
