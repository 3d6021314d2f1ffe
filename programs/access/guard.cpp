#include "programs/access/guard.h"

#include <utility>

namespace zor::access {

Guard::Subject Guard::Admit(const Identity &identity) {
  std::string key = WhoText(identity);
  // The text leaves out what is not known and what is empty.
  key += identity.groups ? "" : " ?group";
  key += identity.unit ? "" : " ?unit";
  const auto [place, isNew] = subjects_.try_emplace(key, latest_ + 1);
  Known &known = known_[place->second];
  ++known.clients;
  if (!isNew) return place->second;
  ++latest_;
  known.identity = identity;
  known.who = WhoText(identity);
  known.key = std::move(key);
  known.concerning = rules_.Concerning(identity);
  return latest_;
}

void Guard::Dismiss(Subject subject) {
  const auto found = known_.find(subject);
  if (found == known_.end() || --found->second.clients > 0) return;
  subjects_.erase(found->second.key);
  known_.erase(found);
}

// Numbers of subjects are not used again, so nothing kept about an earlier one can concern a later one.
Guard::Answer Guard::Ask(Subject subject, const Action &action) {
  if (rules_.isOpen()) return {true, {}};
  Verdict verdict = Decide(subject, action);
  // Who holds a name changes, so it is no part of what is kept.
  if (verdict.allowed && action.holder == nullptr) return {true, verdict};
  const Known &known = KnownOf(subject);
  if (verdict.allowed && rules_.IsHeldByOther(known.identity, action)) verdict = {false, Reason::kHeld, nullptr};
  if (verdict.allowed) return {true, verdict};
  refusals_.Add(known.who, action, verdict, rules_);
  return {rules_.mode() == Mode::kObserve, verdict};
}

Verdict Guard::Decide(Subject subject, const Action &action) {
  DecisionCache::Key key = {};
  const bool isKept = DecisionCache::MakeKey(subject, action, key);
  std::int32_t rule = isKept ? cache_.Find(key) : DecisionCache::kUnknown;
  if (rule == DecisionCache::kUnknown) {
    rule = rules_.FirstFor(KnownOf(subject).concerning, action);
    if (isKept) cache_.Add(key, rule);
  }
  return rules_.VerdictOf(rule);
}

const Guard::Known &Guard::KnownOf(Subject subject) {
  const auto found = known_.find(subject);
  return found == known_.end() ? stranger_ : found->second;
}

void Guard::Replace(Rules rules) {
  rules_ = std::move(rules);
  cache_.Clear(!rules_.isOpen());
  stranger_.concerning = rules_.Concerning(stranger_.identity);
  for (auto &[subject, known] : known_) known.concerning = rules_.Concerning(known.identity);
}

}  // namespace zor::access
