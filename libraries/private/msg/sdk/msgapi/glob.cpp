// Patterns come from other processes, and backtracking takes exponential time on some. So the matcher keeps, for the
// part of the pattern read so far, the set of all path prefixes that it matches: time is pattern times path at most.
#include "sdk/msgapi/glob.h"

#include <zor/msg_dispatch.h>

#include <memory>
#include <new>

namespace zor {
namespace {

class PrefixSet {
 public:
  explicit PrefixSet(std::string_view path) noexcept
      : path_(path), matched_(new (std::nothrow) bool[path.size() + 1]()) {
    if (matched_ != nullptr) matched_[0] = true;
  }

  bool valid() const noexcept { return matched_ != nullptr; }
  bool HasWholePath() const noexcept { return matched_[path_.size()]; }

  void TakeOne(char token) noexcept {
    for (std::size_t end = path_.size(); end > 0; --end) {
      matched_[end] = matched_[end - 1] && (token == '?' || token == path_[end - 1]);
    }
    matched_[0] = false;
  }

  void TakeRun(bool acrossSlash) noexcept {
    for (std::size_t end = 1; end <= path_.size(); ++end) {
      if (matched_[end - 1] && (acrossSlash || path_[end - 1] != '/')) matched_[end] = true;
    }
  }

 private:
  std::string_view path_;
  std::unique_ptr<bool[]> matched_;  // [n]: the pattern so far matches the first n characters
};

}  // namespace

bool GlobMatches(std::string_view pattern, std::string_view path) noexcept {
  PrefixSet prefixes(path);
  if (!prefixes.valid()) return false;
  for (; !pattern.empty(); pattern.remove_prefix(1)) {
    if (pattern.starts_with("**")) {
      prefixes.TakeRun(true);
      pattern.remove_prefix(1);
    } else if (pattern.front() == '*') {
      prefixes.TakeRun(false);
    } else {
      prefixes.TakeOne(pattern.front());
    }
  }
  return prefixes.HasWholePath();
}

}  // namespace zor

uint32_t ZOR_UTIL_MatchPrefixPath(const char *patternList, const char *path) {
  if (patternList == nullptr || path == nullptr) return 0;
  std::string_view rest = patternList;
  for (;;) {
    const std::size_t bar = rest.find('|');
    if (zor::GlobMatches(rest.substr(0, bar), path)) return 1;
    if (bar == std::string_view::npos) return 0;
    rest.remove_prefix(bar + 1);
  }
}
