// Numbers as options of the command line.
#ifndef ZORCTL_NUMBER_OPTION_H
#define ZORCTL_NUMBER_OPTION_H

#include <cstdint>
#include <string>
#include "zorctl/options.h"

namespace zor::ctl {

// Adds an option for a number, decimal or with 0x, from least to UINT32_MAX.
Option AddNumber(Options &options, const char *name, uint32_t &number, const std::string &purpose, uint32_t least);

// Adds --limit, for verbs that print one item after the other. It cannot be 0, which means no limit.
void AddLimit(Options &options, uint32_t &limit, const char *purpose);

}  // namespace zor::ctl

#endif
