#include "programs/access/rule.h"

#include <algorithm>

namespace zor::access {
namespace {

bool AnyMatches(const std::vector<Pattern> &patterns, std::string_view text) {
  return std::any_of(patterns.begin(), patterns.end(), [=](const Pattern &each) { return each.Matches(text); });
}

bool Matches(const std::vector<Pattern> &patterns, const std::optional<std::string> &fact, bool unknown) {
  if (patterns.empty()) return true;
  return fact ? AnyMatches(patterns, *fact) : unknown;
}

bool MatchesGroups(const std::vector<gid_t> &wanted, const std::optional<std::vector<gid_t>> &groups, bool unknown) {
  if (wanted.empty()) return true;
  if (!groups) return unknown;
  return std::find_first_of(groups->begin(), groups->end(), wanted.begin(), wanted.end()) != groups->end();
}

bool MatchesUsers(const Who &who, const std::optional<uid_t> &user, bool unknown) {
  if (who.isLocal && user) return true;
  if (who.users.empty()) return !who.isLocal || unknown;
  return user ? std::find(who.users.begin(), who.users.end(), *user) != who.users.end() : unknown;
}

}  // namespace

bool Who::Matches(const Identity &identity, bool unknown) const {
  if (identity.board) {
    if (isLocal || !users.empty() || !groups.empty() || !executables.empty() || !units.empty()) return false;
    return MatchesBoard(identity, unknown);
  }
  return boards.empty() && boardNames.empty() && MatchesUsers(*this, identity.user, unknown) &&
         MatchesGroups(groups, identity.groups, unknown) &&
         access::Matches(executables, identity.executable, unknown) && access::Matches(units, identity.unit, unknown);
}

bool Who::MatchesBoard(const Identity &identity, bool unknown) const {
  if (boards.empty() && boardNames.empty()) return true;
  const bool hasAddress = std::any_of(
      boards.begin(), boards.end(), [&](const Boards &each) { return (*identity.board & each.mask) == each.address; });
  return hasAddress || (!boardNames.empty() && access::Matches(boardNames, identity.certificate, unknown));
}

bool What::Matches(const Action &action, bool overlapping) const {
  if (verb == Verb::kAll) return true;
  if (verb != action.verb) return false;
  const VerbWords &words = WordsOf(verb);
  // Whoever subscribes to all events gets each of them.
  const bool isAny = overlapping && verb == Verb::kSubscribe && action.number == words.leastNumber;
  if (words.hasNumbers && !isAny &&
      std::none_of(numbers.begin(), numbers.end(), [&](const Range &each) { return each.Contains(action.number); })) {
    return false;
  }
  if (names.empty()) return action.name.empty();
  if (verb == Verb::kServe && overlapping) {
    return std::any_of(names.begin(), names.end(), [&](const Pattern &each) { return each.Overlaps(action.name); });
  }
  // What a daemon does for itself is not what it does for any other.
  if (words.names == VerbWords::Names::kOptional && action.name.empty()) return false;
  return AnyMatches(names, action.name);
}

}  // namespace zor::access
