// A server is replaced, on request, by the program that is at its path now: a newer one after an upgrade.
//
// First a trial: the program runs as a child with --check-state and a snapshot of the server's state, while the server
// goes on serving. It exits with 0 when it would start with this state and these settings, or reports on its standard
// error why not. Then the server makes its final state and executes the program in place: the process, its descriptors
// and its pending signals stay. Until the exec has succeeded, every failure leaves the server as it was: it logs the
// reason and goes on.
//
// Signals are blocked throughout. One that arrives while the server is being replaced stays pending for the successor.
#ifndef PROGRAMS_SUCCESSION_H
#define PROGRAMS_SUCCESSION_H

#include <sys/types.h>

#include <chrono>
#include <span>
#include <string>
#include <string_view>

#include "common/unique_fd.h"
#include "programs/event_poll.h"
#include "programs/inheritance.h"
#include "programs/problem_log.h"
#include "programs/program_image.h"

namespace zor::daemon {

class Succession {
 public:
  enum class Outcome { kUnderWay, kAccepted, kRefused };

  // Both must outlive it.
  Succession(const ProgramImage &image, ProblemLog &log);
  Succession(const Succession &) = delete;
  Succession &operator=(const Succession &) = delete;
  // Ends a trial that is under way.
  ~Succession();

  // False, with errno, when the system gave no descriptors.
  bool valid() const { return poll_.valid() && timer_.valid(); }
  // Readable when the trial has to be continued; the same descriptor for the object's lifetime.
  int fd() const { return poll_.fd(); }
  // From the trial's start until it is refused or the exec has failed.
  bool underWay() const { return underWay_; }

  // Starts the trial with a snapshot of the state. False: refused. Not while one is under way.
  bool Begin(UniqueFd snapshot);
  // Never waits. When it was accepted, make the final state and call Execute, or Refuse.
  Outcome Continue();
  // Replaces the program. The descriptors `kept` and the state stay open. Returns only when that failed: refused, and
  // everything is as before.
  void Execute(const UniqueFd &state, std::span<const int> kept);
  // Ends the succession: logs the reason and notifies the service manager.
  void Refuse(std::string_view reason);
  // Why the latest succession was refused.
  const std::string &reason() const { return reason_; }

 private:
  using Clock = Inheritance::Clock;

  bool Spawn(const UniqueFd &snapshot);
  void Replace(const UniqueFd &state, std::span<const int> kept);
  void TakeErrors();
  Outcome TakeEnd();
  void SetTimer(Clock::duration delay);
  void EndTrial();
  std::string ReasonOf(int status) const;

  const ProgramImage &image_;
  ProblemLog &log_;
  EventPoll poll_;
  UniqueFd timer_;
  UniqueFd errors_;  // the trial's standard error
  pid_t trial_ = -1;
  bool underWay_ = false;
  std::string text_;  // the start of what it reported
  std::string reason_;
  Clock::time_point requested_;
  Clock::time_point deadline_;
};

}  // namespace zor::daemon

#endif
