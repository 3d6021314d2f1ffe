// The settings and rules of all servers for a bundle, without secrets.
#ifndef ZORCTL_BUNDLE_SETTINGS_FILES_H
#define ZORCTL_BUNDLE_SETTINGS_FILES_H

#include <string>

namespace zor::ctl {

// Prints the files below a directory, each under its path; of one that is left out, why.
void PrintSettings(const std::string &directory);

}  // namespace zor::ctl

#endif
