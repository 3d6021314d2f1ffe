// The rules in force, and what they decide. Rules come from the files *.conf of a directory, in the order of their
// names, and the first that concerns a peer and what it asks for decides. A set of rules never changes: new ones are
// read aside and take its place whole, or not at all.
#ifndef PROGRAMS_ACCESS_RULES_H
#define PROGRAMS_ACCESS_RULES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/access/accounts.h"
#include "programs/access/rule.h"

namespace zor::access {

enum class Mode { kEnforce, kObserve };

// Why something is allowed or refused.
enum class Reason {
  kOpen,       // there are no rules
  kRule,       // by a rule
  kUnmatched,  // there are rules, and none is about it
  kHeld,       // another owner has the name
};

struct Verdict {
  bool allowed = true;
  Reason reason = Reason::kOpen;
  const Rule *rule = nullptr;  // of the set that was asked
};

class Rules {
 public:
  static constexpr const char *kDirectory = "/etc/zor/access.d";

  // No rules: everything is allowed.
  Rules() = default;
  // Reads a directory, or a file, at a real path; without it there are no rules. Mistakes are added as "FILE:LINE:
  // ..."; no value when there is one.
  static std::optional<Rules> Load(const std::string &path, const Accounts &accounts,
                                   std::vector<std::string> &mistakes);
  // Reads a text as one file of that name.
  static std::optional<Rules> FromText(std::string_view text, const std::string &file, const Accounts &accounts,
                                       std::vector<std::string> &mistakes);

  // Without a rule and without a mode everything is allowed.
  bool isOpen() const { return list_.empty() && !mode_; }
  Mode mode() const { return mode_ ? mode_->value : Mode::kEnforce; }
  // For operators' tools.
  const char *ModeName() const { return isOpen() ? "open" : mode() == Mode::kObserve ? "observe" : "enforce"; }
  const std::vector<Rule> &list() const { return list_; }

  Verdict Decide(const Identity &identity, const Action &action) const;

  // The same in steps, for those who ask often. The numbers of the rules that concern a peer; of these, the one that
  // decides about an action; and what that rule says.
  static constexpr std::int32_t kUnmatched = -1;
  std::vector<std::int32_t> Concerning(const Identity &identity) const;
  std::int32_t FirstFor(const std::vector<std::int32_t> &concerning, const Action &action) const;
  Verdict VerdictOf(std::int32_t rule) const;
  // A name that is allowed, but that another owner has.
  bool IsHeldByOther(const Identity &identity, const Action &action) const;

  // One line: the deciding rule with its place, or what decided instead.
  std::string Explain(const Verdict &verdict) const;

 private:
  friend class RuleReader;
  template <class Value>
  struct Setting {
    Value value;
    Place place;
  };

  std::vector<Rule> list_;
  std::optional<Setting<Mode>> mode_;
  std::optional<Setting<bool>> sharesNames_;  // one name may have owners of several users
};

}  // namespace zor::access

#endif
