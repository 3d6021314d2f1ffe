// What must not leave the gateway with a bundle: secrets, by the names of files and settings and by their content, and
// addresses, which the library masks.
#ifndef ZORCTL_BUNDLE_PRIVACY_H
#define ZORCTL_BUNDLE_PRIVACY_H

#include <set>
#include <string>
#include <string_view>

namespace zor::ctl {

// Why a file is left out, by its name or its content; empty if it may be included.
std::string SecretReason(std::string_view name, std::string_view content);

// The files that a settings file names as keys or passwords, wherever they are.
std::set<std::string> SecretPathsIn(std::string_view settings);

// The text without values that follow words such as password or token, and passwords in URLs.
std::string WithoutSecrets(std::string_view text);

// The text with MAC and IP addresses masked. The library masks files, so that it needs the path of one, which is
// overwritten. Failure when that cannot be written.
std::string Masked(std::string_view text, const std::string &scratch);

}  // namespace zor::ctl

#endif
