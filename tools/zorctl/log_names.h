// Types and levels of log records as users write them.
#ifndef ZORCTL_LOG_NAMES_H
#define ZORCTL_LOG_NAMES_H

#include <cstdint>
#include <string>
#include <vector>

namespace zor::ctl {

// The bits of the named types, all of them for no name. A name may cover several types; case does not matter, and a
// number is taken as bits. Failure (not found) for an unknown one.
uint32_t LogTypes(const std::vector<std::string> &names);

// The bits of the named level and of those that are more severe, all of them for no name.
uint32_t LogLevels(const std::string &name);

}  // namespace zor::ctl

#endif
