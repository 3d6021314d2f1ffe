#include "msgsvr/restful.h"

#include <algorithm>

namespace zor::msgsvr {
namespace {

// The positions in the path up to which the pattern read so far can match: all alternatives at once, instead of
// trying one after the other, which some patterns make exponential.
using Reached = std::vector<bool>;

void SpreadRun(Reached &reached, std::string_view path, bool acrossSlash) {
  for (size_t i = 0; i < path.size(); ++i) {
    if (reached[i] && (acrossSlash || path[i] != '/')) reached[i + 1] = true;
  }
}

void StepOver(Reached &reached, std::string_view path, char wanted) {
  for (size_t i = path.size(); i > 0; --i) {
    reached[i] = reached[i - 1] && (wanted == '?' || path[i - 1] == wanted);
  }
  reached[0] = false;
}

}  // namespace

bool MatchGlob(std::string_view pattern, std::string_view path) {
  Reached reached(path.size() + 1, false);
  reached[0] = true;
  for (size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '*') {
      StepOver(reached, path, pattern[i]);
      continue;
    }
    const bool doubled = i + 1 < pattern.size() && pattern[i + 1] == '*';
    SpreadRun(reached, path, doubled);
    if (doubled) ++i;
  }
  return reached[path.size()];
}

bool MatchPatternList(std::string_view patternList, std::string_view path) {
  for (;;) {
    const size_t end = patternList.find('|');
    if (MatchGlob(patternList.substr(0, end), path)) return true;
    if (end == std::string_view::npos) return false;
    patternList.remove_prefix(end + 1);
  }
}

bool RestfulPatterns::Add(Client &client, std::string_view patternList) {
  const auto cost = [](std::string_view list) { return list.size() + sizeof(Entry); };
  size_t held = cost(patternList);
  for (const Entry &entry : entries_) {
    if (entry.client == &client) held += cost(entry.patternList);
  }
  if (held > kMaxBytesPerClient) return false;
  entries_.push_back({&client, std::string(patternList)});
  return true;
}

void RestfulPatterns::Remove(const Client &client) {
  std::erase_if(entries_, [&](const Entry &entry) { return entry.client == &client; });
}

Client *RestfulPatterns::Find(std::string_view prefix, std::string_view name) const {
  const std::string path = std::string(prefix).append("/").append(name);
  const auto entry = std::find_if(entries_.begin(), entries_.end(), [&](const Entry &candidate) {
    return MatchPatternList(candidate.patternList, path) || MatchPatternList(candidate.patternList, prefix);
  });
  return entry == entries_.end() ? nullptr : entry->client;
}

}  // namespace zor::msgsvr
