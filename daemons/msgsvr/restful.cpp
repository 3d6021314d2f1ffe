#include "msgsvr/restful.h"

#include <algorithm>

#include "programs/limits.h"

namespace zor::msgsvr {
namespace {

size_t Index(char character) {
  return static_cast<unsigned char>(character);
}

// From each position over any number of those that may be passed, in steps of doubling length.
template <typename Positions>
Positions Spread(Positions reached, const Positions &passable) {
  Positions open = passable << 1;
  for (size_t step = 1; step < reached.size(); step *= 2) {
    reached |= open & (reached << step);
    open &= open << step;
  }
  return reached;
}

}  // namespace

RestfulPath::RestfulPath(std::string_view text) : end_(std::min(text.size(), kMaxSize)) {
  for (size_t i = 0; i < end_; ++i) {
    of_[Index(text[i])].set(i);
    any_.set(i);
  }
}

// Keeps the set of positions that the pattern read so far can reach: trying one after the other takes exponential time
// for some patterns, and the whole bus waits meanwhile.
bool RestfulPath::Matches(std::string_view pattern) const {
  Positions reached(1);
  for (size_t i = 0; i < pattern.size() && reached.any(); ++i) {
    if (pattern[i] == '*') {
      const bool doubled = i + 1 < pattern.size() && pattern[i + 1] == '*';
      reached = Spread(reached, doubled ? any_ : any_ & ~of_['/']);
      if (doubled) ++i;
    } else {
      reached = (reached & (pattern[i] == '?' ? any_ : of_[Index(pattern[i])])) << 1;
    }
  }
  return reached[end_];
}

bool RestfulPath::MatchesOneOf(std::string_view patternList) const {
  for (;;) {
    const size_t end = patternList.find('|');
    if (Matches(patternList.substr(0, end))) return true;
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
  if (held > limits::msgsvr::kPatternBytes) return false;
  entries_.push_back({&client, std::string(patternList)});
  return true;
}

void RestfulPatterns::Remove(const Client &client) {
  std::erase_if(entries_, [&](const Entry &entry) { return entry.client == &client; });
}

std::vector<std::string_view> RestfulPatterns::Of(const Client &client) const {
  std::vector<std::string_view> lists;
  for (const Entry &entry : entries_) {
    if (entry.client == &client) lists.push_back(entry.patternList);
  }
  return lists;
}

Client *RestfulPatterns::Find(std::string_view prefix, std::string_view name) const {
  const RestfulPath whole(std::string(prefix).append("/").append(name));
  const RestfulPath prefixAlone(prefix);
  const auto entry = std::find_if(entries_.begin(), entries_.end(), [&](const Entry &candidate) {
    return whole.MatchesOneOf(candidate.patternList) || prefixAlone.MatchesOneOf(candidate.patternList);
  });
  return entry == entries_.end() ? nullptr : entry->client;
}

}  // namespace zor::msgsvr
