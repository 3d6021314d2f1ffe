// What is the same in every server that asks the rules.
#ifndef PROGRAMS_ACCESS_SERVER_ACCESS_H
#define PROGRAMS_ACCESS_SERVER_ACCESS_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "programs/access/guard.h"
#include "programs/fields.h"
#include "programs/holder.h"
#include "programs/problem_log.h"

namespace zor::access {

// The rules in Rules::kDirectory below the root. No value if there is a mistake; all are added, or named in the log.
std::optional<Rules> LoadRules(std::vector<std::string> &mistakes);
std::optional<Rules> LoadRules(daemon::ProblemLog &log);

// Lets the guard have the rules as the files say now, all or none, for the client of that name. What it is told: how
// many rules are in force and how, as JSON, or the mistakes. The log says the same.
struct Reloaded {
  bool done;
  std::string text;
};
Reloaded ReloadRules(Guard &guard, const char *label, daemon::ProblemLog &log);

// A client that a guard has admitted, and dismisses when the object ends. The guard must outlive it.
class Admission {
 public:
  Admission() = default;
  Admission(Guard &guard, const Identity &identity) : guard_(&guard), subject_(guard.Admit(identity)) {}
  Admission(Admission &&other) noexcept
      : guard_(std::exchange(other.guard_, nullptr)), subject_(std::exchange(other.subject_, 0)) {}
  Admission &operator=(Admission &&other) noexcept {
    std::swap(guard_, other.guard_);
    std::swap(subject_, other.subject_);
    return *this;
  }
  ~Admission() {
    if (guard_ != nullptr) guard_->Dismiss(subject_);
  }

  Guard::Subject subject() const { return subject_; }

 private:
  Guard *guard_ = nullptr;
  Guard::Subject subject_ = 0;
};

// A line about what the rules have refused, or would refuse: what, to whom, and which rule. Nothing if they allow it.
void LogRefusal(daemon::ProblemLog &log, const daemon::Holder &holder, const char *label, const Guard &guard,
                Guard::Subject subject, const Action &action, const Guard::Answer &answer);

// Whether a control request is granted to a client of that user. Without rules, and while they are only observed,
// operators may send any: see daemon::IsOperator. The answer is for LogRefusal.
struct ControlAnswer {
  bool granted;
  Guard::Answer answer;
};
ControlAnswer AskControl(Guard &guard, Guard::Subject subject, uid_t user, const Action &action);

// An identity in the record of a client: its process may have ended when a successor reads that.
template <typename Fields, daemon::OneOf<Identity> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.user);
  fields(2, record.groups);
  fields(3, record.executable);
  fields(4, record.unit);
  fields(5, record.board);
  fields(6, record.certificate);
}

}  // namespace zor::access

#endif
