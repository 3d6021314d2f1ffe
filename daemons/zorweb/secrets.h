// Random texts that nobody can guess, and their comparison.
#ifndef ZORWEB_SECRETS_H
#define ZORWEB_SECRETS_H

#include <optional>
#include <string>
#include <string_view>

#include "programs/problem_log.h"

namespace zor::web {

// 256 random bits as hexadecimal digits.
std::string MakeSecret();

// In a time that does not depend on where they differ.
bool IsSame(std::string_view secret, std::string_view text);

// The token in a file, by its real path. A file that is missing is made, for its owner and group to read. Nothing, with
// a line, for one that others may read, or that holds no token of at least 32 characters.
std::optional<std::string> ReadToken(const std::string &path, daemon::ProblemLog &log);

}  // namespace zor::web

#endif
