#include "programs/access/shadow.h"

#include <algorithm>

namespace zor::access {
namespace {

bool Covers(const Pattern &wide, const Pattern &narrow) {
  return wide.isPrefix ? narrow.text.starts_with(wide.text) : !narrow.isPrefix && narrow.text == wide.text;
}

bool Covers(const Range &wide, const Range &narrow) {
  return wide.Contains(narrow.first) && wide.Contains(narrow.last);
}

bool Covers(const Boards &wide, const Boards &narrow) {
  return (wide.mask & narrow.mask) == wide.mask && (narrow.address & wide.mask) == wide.address;
}

bool Covers(unsigned wide, unsigned narrow) {
  return wide == narrow;
}

template <class Item>
bool CoversAll(const std::vector<Item> &wide, const std::vector<Item> &narrow) {
  return std::all_of(narrow.begin(), narrow.end(), [&](const Item &item) {
    return std::any_of(wide.begin(), wide.end(), [&](const Item &each) { return Covers(each, item); });
  });
}

// An empty list is no condition, so it covers everything and only an empty one covers it.
template <class Item>
bool CoversCondition(const std::vector<Item> &wide, const std::vector<Item> &narrow) {
  return wide.empty() || (!narrow.empty() && CoversAll(wide, narrow));
}

// Addresses and names are one list. No address has a name, but every board has some address.
bool CoversBoards(const Who &wide, const Who &narrow) {
  if (wide.boards.empty() && wide.boardNames.empty()) return true;
  if (narrow.boards.empty() && narrow.boardNames.empty()) return false;
  const bool isEvery =
      std::any_of(wide.boards.begin(), wide.boards.end(), [](const Boards &each) { return each.mask == 0; });
  return CoversAll(wide.boards, narrow.boards) && (isEvery || CoversAll(wide.boardNames, narrow.boardNames));
}

bool Covers(const Who &wide, const Who &narrow) {
  if (wide.isLocal ? !narrow.isLocal && narrow.users.empty() : !CoversCondition(wide.users, narrow.users)) return false;
  return CoversCondition(wide.groups, narrow.groups) && CoversCondition(wide.executables, narrow.executables) &&
         CoversCondition(wide.units, narrow.units) && CoversBoards(wide, narrow);
}

bool Covers(const What &wide, const What &narrow) {
  if (wide.verb == Verb::kAll) return true;
  return wide.verb == narrow.verb && wide.names.empty() == narrow.names.empty() &&
         CoversAll(wide.numbers, narrow.numbers) && CoversAll(wide.names, narrow.names);
}

// Where something is not known, or a pattern or all events include it, a prohibition reaches further than a permission.
bool ReachesFurther(const Rule &earlier, const Rule &rule) {
  const Who &who = earlier.who;
  const bool isCertain = who.groups.empty() && who.executables.empty() && who.units.empty() && who.users.empty() &&
                         who.boardNames.empty() && !who.isLocal && earlier.what.verb != Verb::kServe &&
                         earlier.what.verb != Verb::kSubscribe;
  return !earlier.allows || rule.allows || isCertain;
}

}  // namespace

std::vector<Shadow> FindShadows(const Rules &rules) {
  std::vector<Shadow> shadows;
  for (auto rule = rules.list().begin(); rule != rules.list().end(); ++rule) {
    const auto earlier = std::find_if(rules.list().begin(), rule, [&](const Rule &each) {
      return ReachesFurther(each, *rule) && Covers(each.who, rule->who) && Covers(each.what, rule->what);
    });
    if (earlier != rule) shadows.push_back({&*rule, &*earlier});
  }
  return shadows;
}

}  // namespace zor::access
