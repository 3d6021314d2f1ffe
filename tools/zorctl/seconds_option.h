// Times as options of the command line: seconds, fractions allowed, always limited.
#ifndef ZORCTL_SECONDS_OPTION_H
#define ZORCTL_SECONDS_OPTION_H

#include "zorctl/deadline.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace zor::ctl {

// Adds an option for a time, whose default is the variable's value.
CLI::Option *AddSeconds(CLI::App &app, const char *name, double &seconds, const char *purpose);

Milliseconds FromSeconds(double seconds);

}  // namespace zor::ctl

#endif
