// All that is known of one daemon: traffic, peers, requests, subscriptions.
#ifndef ZORCTL_TOP_DETAIL_H
#define ZORCTL_TOP_DETAIL_H

#include "zorctl/screen_line.h"
#include "zorctl/top_data.h"

namespace zor::ctl {

Screen DetailOf(const TopData &data, const TopRow &row);

}  // namespace zor::ctl

#endif
