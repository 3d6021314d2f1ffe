#include "programs/access/guard.h"

#include <utility>

namespace zor::access {

Guard::Subject Guard::Admit(const Identity &identity) {
  std::string key = WhoText(identity);
  // The text leaves out what is not known and what is empty.
  key += identity.groups ? "" : " ?group";
  key += identity.unit ? "" : " ?unit";
  // If memory runs out below, the key is left without a subject and gets one when the next peer like it is admitted.
  const auto place = subjects_.try_emplace(key, kNone).first;
  if (place->second == kNone) {
    known_.try_emplace(latest_ + 1, Known{identity, WhoText(identity), std::move(key), 0, rules_.Concerning(identity)});
    place->second = ++latest_;
  }
  ++known_.at(place->second).clients;
  return place->second;
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
  const bool passes = rules_.mode() == Mode::kObserve;
  if (passes) ++observed_;
  return {passes, verdict};
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

const Guard::Known &Guard::KnownOf(Subject subject) const {
  const auto found = known_.find(subject);
  return found == known_.end() ? stranger_ : found->second;
}

void Guard::Replace(Rules rules) {
  std::vector<std::vector<std::int32_t>> concerning;
  concerning.reserve(known_.size());
  for (const auto &[subject, known] : known_) concerning.push_back(rules.Concerning(known.identity));
  std::vector<std::int32_t> concerningStranger = rules.Concerning(stranger_.identity);
  DecisionCache cache(!rules.isOpen());
  // From here on nothing can fail, so that the numbers are always those of the rules.
  rules_ = std::move(rules);
  cache_ = std::move(cache);
  stranger_.concerning = std::move(concerningStranger);
  auto next = concerning.begin();
  for (auto &[subject, known] : known_) known.concerning = std::move(*next++);
}

}  // namespace zor::access
