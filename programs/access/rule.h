// One rule: who may, or may not, do what.
#ifndef PROGRAMS_ACCESS_RULE_H
#define PROGRAMS_ACCESS_RULE_H

#include <cstdint>
#include <string>
#include <vector>

#include "programs/access/action.h"
#include "programs/access/identity.h"
#include "programs/access/pattern.h"
#include "programs/access/type_names.h"

namespace zor::access {

// Where a line stands, for explanations and mistakes.
struct Place {
  std::string file;
  int line = 0;

  std::string Text() const { return file + ':' + std::to_string(line); }
};

// IPv4 addresses whose first bits are the same.
struct Boards {
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
};

// Conditions on a peer, all of which must hold. An empty list is no condition; of a list, one item is enough.
struct Who {
  bool isLocal = false;  // any user of this system
  std::vector<uid_t> users;
  std::vector<gid_t> groups;
  std::vector<Pattern> executables;
  std::vector<Pattern> units;
  std::vector<Boards> boards;
  std::vector<Pattern> boardNames;  // with `boards` one list

  // unknown: what a condition on a fact that is not known amounts to.
  bool Matches(const Identity &identity, bool unknown) const;

 private:
  bool MatchesBoard(const Identity &identity, bool unknown) const;
};

struct What {
  Verb verb = Verb::kAll;
  std::vector<Range> numbers;  // of verbs that have some
  std::vector<Pattern> names;

  // overlapping: also what only may be, or includes, one of the names or numbers: a pattern of paths, all events.
  bool Matches(const Action &action, bool overlapping) const;
};

struct Rule {
  bool allows = false;
  Who who;
  What what;
  Place place;
  std::string text;  // as it was written

  bool Concerns(const Identity &identity) const { return who.Matches(identity, !allows); }
  bool Matches(const Action &action) const { return what.Matches(action, !allows); }
};

}  // namespace zor::access

#endif
