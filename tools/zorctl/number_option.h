// --limit of the verbs that print one thing after the other.
#ifndef ZORCTL_NUMBER_OPTION_H
#define ZORCTL_NUMBER_OPTION_H

#include <cstdint>

namespace CLI {
class App;
}

namespace zor::ctl {

// Adds the option. The limit is 0 when none is given, and that cannot be given.
void AddLimit(CLI::App &app, uint64_t &limit, const char *purpose);

}  // namespace zor::ctl

#endif
