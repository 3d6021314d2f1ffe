// Times as options of the command line: seconds, fractions allowed, always limited.
#ifndef ZORCTL_SECONDS_OPTION_H
#define ZORCTL_SECONDS_OPTION_H

#include "zorctl/deadline.h"
#include "zorctl/options.h"

namespace zor::ctl {

// Adds an option for a time, whose default is the variable's value.
Option AddSeconds(Options &options, const char *name, double &seconds, const char *purpose);

Milliseconds FromSeconds(double seconds);

}  // namespace zor::ctl

#endif
