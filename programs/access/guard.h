// What a server asks before it does what a client wants. It keeps what it has decided, since a daemon does the same
// few things again and again: a decision that is known costs one look into a table of fixed size. Clients of equal
// identity are one subject.
//
// While the rules only observe, everything passes. What they refuse, or would, is counted and named either way.
#ifndef PROGRAMS_ACCESS_GUARD_H
#define PROGRAMS_ACCESS_GUARD_H

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "programs/access/decision_cache.h"
#include "programs/access/refusals.h"
#include "programs/access/rules.h"

namespace zor::access {

class Guard {
 public:
  // Stands for an identity as long as one of its clients is there.
  using Subject = std::uint64_t;

  Guard() : Guard(Rules()) {}
  explicit Guard(Rules rules) { Replace(std::move(rules)); }

  // Every client that is admitted is dismissed again.
  Subject Admit(const Identity &identity);
  void Dismiss(Subject subject);

  struct Answer {
    bool passes;
    Verdict verdict;  // valid until the rules are replaced
  };
  // A subject that was not admitted is somebody of whom nothing is known.
  Answer Ask(Subject subject, const Action &action);

  // Other rules from now on; nothing that was decided before counts.
  void Replace(Rules rules);
  const Rules &rules() const { return rules_; }
  const Refusals &refusals() const { return refusals_; }
  // Of all that is counted there, what passed since the rules only observed.
  std::uint64_t observed() const { return observed_; }

  // Who a subject is; somebody of whom nothing is known if it was not admitted.
  const Identity &IdentityOf(Subject subject) const { return KnownOf(subject).identity; }
  const std::string &WhoOf(Subject subject) const { return KnownOf(subject).who; }

 private:
  struct Known {
    Identity identity;
    std::string who = "any";  // the identity as text
    std::string key;          // the same, exact
    std::size_t clients = 0;
    std::vector<std::int32_t> concerning;  // numbers of the rules
  };

  static constexpr Subject kNone = 0;

  const Known &KnownOf(Subject subject) const;
  Verdict Decide(Subject subject, const Action &action);

  Rules rules_;
  std::unordered_map<Subject, Known> known_;
  std::map<std::string, Subject, std::less<>> subjects_;
  Subject latest_ = 0;
  Known stranger_;
  DecisionCache cache_;
  Refusals refusals_;
  std::uint64_t observed_ = 0;
};

}  // namespace zor::access

#endif
