// Reading rules from files, which nobody else may be able to write.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "common/unique_fd.h"
#include "programs/access/rule_reader.h"
#include "programs/access/rules.h"
#include "programs/limits.h"

namespace zor::access {
namespace {

struct DirectoryCloser {
  void operator()(DIR *directory) const { ::closedir(directory); }
};

// The names of its files *.conf, in their order; no value, with errno, when it cannot be read.
std::optional<std::vector<std::string>> FilesIn(const std::string &path) {
  constexpr std::string_view kEnding = ".conf";
  const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir(path.c_str()));
  if (directory == nullptr) return std::nullopt;
  std::vector<std::string> names;
  errno = 0;
  while (const dirent *entry = ::readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    if (name.ends_with(kEnding) && name.front() != '.') names.emplace_back(name);
  }
  if (errno != 0) return std::nullopt;
  std::sort(names.begin(), names.end());
  return names;
}

// Why rules there would not be those of the operator; null if they are.
const char *DistrustOf(const struct stat &status) {
  if (status.st_uid != 0 && status.st_uid != ::geteuid()) return "belongs to another user";
  return (status.st_mode & S_IWOTH) != 0 ? "may be written by anyone" : nullptr;
}

std::optional<std::string> ReadWhole(const std::string &path, bool isTrusted, std::string &why) {
  struct stat status = {};
  // A fifo must not block.
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file.valid() || ::fstat(file.get(), &status) != 0) {
    why = std::strerror(errno);
    return std::nullopt;
  }
  const char *distrust = isTrusted ? nullptr : DistrustOf(status);
  if (!S_ISREG(status.st_mode)) distrust = "not a file";
  std::string text(limits::kSettingsFile + 1, '\0');
  const ssize_t length = distrust == nullptr ? ::read(file.get(), text.data(), text.size()) : 0;
  if (length < 0) {
    why = std::strerror(errno);
    return std::nullopt;
  }
  text.resize(static_cast<std::size_t>(length));
  if (distrust == nullptr && text.size() > limits::kSettingsFile) distrust = "too large";
  if (distrust == nullptr) return text;
  why = distrust;
  return std::nullopt;
}

}  // namespace

std::optional<Rules> Rules::Load(const std::string &path, const Accounts &accounts,
                                 std::vector<std::string> &mistakes) {
  Rules rules;
  struct stat status = {};
  const std::size_t before = mistakes.size();
  RuleReader reader(accounts, mistakes);
  const auto read = [&](const std::string &file, bool isTrusted) {
    std::string why;
    const auto text = ReadWhole(file, isTrusted, why);
    text ? reader.ReadText(*text, file, rules) : mistakes.push_back(file + ": " + why);
  };
  if (::stat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return rules;
    mistakes.push_back(path + ": " + std::strerror(errno));
  } else if (!S_ISDIR(status.st_mode)) {
    read(path, true);  // named by the caller
  } else if (const char *distrust = DistrustOf(status)) {
    mistakes.push_back(path + ": " + distrust);
  } else if (const auto files = FilesIn(path)) {
    for (const std::string &file : *files) read(std::string(path).append("/").append(file), false);
  } else {
    mistakes.push_back(path + ": " + std::strerror(errno));
  }
  if (mistakes.size() > before) return std::nullopt;
  return rules;
}

std::optional<Rules> Rules::FromText(std::string_view text, const std::string &file, const Accounts &accounts,
                                     std::vector<std::string> &mistakes) {
  Rules rules;
  const std::size_t before = mistakes.size();
  RuleReader(accounts, mistakes).ReadText(text, file, rules);
  if (mistakes.size() > before) return std::nullopt;
  return rules;
}

}  // namespace zor::access
