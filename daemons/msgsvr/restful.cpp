#include "msgsvr/restful.h"

#include <algorithm>

#include "common/path_pattern.h"
#include "msgsvr/client.h"
#include "programs/limits.h"

namespace zor::msgsvr {

bool RestfulPatterns::Add(Client &client, std::string_view patternList) {
  const size_t cost = patternList.size() + sizeof(Entry);
  if (client.patternBytes + cost > limits::msgsvr::kPatternBytes || !client.charge.MayTake(cost)) return false;
  entries_.push_back({&client, std::string(patternList), ++lastOrder_});
  client.patternBytes += static_cast<uint32_t>(cost);
  client.Settle();
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

std::vector<RestfulPatterns::Registered> RestfulPatterns::RegisteredBy(const Client &client) const {
  std::vector<Registered> lists;
  for (const Entry &entry : entries_) {
    if (entry.client == &client) lists.push_back({entry.order, entry.patternList});
  }
  return lists;
}

Client *RestfulPatterns::Find(std::string_view prefix, std::string_view name) const {
  const std::string path = std::string(prefix).append("/").append(name);
  std::vector<uint64_t> wholeRoom(PathMatcher::RoomFor(path.size()));
  std::vector<uint64_t> prefixRoom(PathMatcher::RoomFor(prefix.size()));
  PathMatcher whole(path, wholeRoom);
  PathMatcher prefixAlone(prefix, prefixRoom);
  const auto entry = std::find_if(entries_.begin(), entries_.end(), [&](const Entry &candidate) {
    return whole.MatchesOneOf(candidate.patternList) || prefixAlone.MatchesOneOf(candidate.patternList);
  });
  return entry == entries_.end() ? nullptr : entry->client;
}

}  // namespace zor::msgsvr
