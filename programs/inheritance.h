// The state that a server hands over to its successor: a memory file, and a variable of the environment that names it.
#ifndef PROGRAMS_INHERITANCE_H
#define PROGRAMS_INHERITANCE_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "common/unique_fd.h"
#include "programs/problem_log.h"

namespace zor::daemon {

// The variable; a process that finds it takes it out of its environment.
inline constexpr char kHandOverVariable[] = "ZOR_HANDOVER";

// An empty memory file, close-on-exec. Invalid, with errno, when the system gives none.
UniqueFd NewStateFile();

// What a successor takes over.
struct Inheritance {
  using Clock = std::chrono::steady_clock;

  UniqueFd state;  // close-on-exec, as is every other descriptor that was handed over, whose numbers the state contains
  std::string version;          // of the predecessor
  Clock::time_point requested;  // when it was asked to hand over
  Clock::time_point paused;     // when it stopped serving

  // The value of the variable. A descriptor number other than that of `state` is for a child that gets it as this one.
  std::string Variable(int stateNumber) const;
  // From now on clients are served again: the time that the hand-over took, in all and as a pause.
  std::chrono::milliseconds Duration() const;
  std::chrono::milliseconds Pause() const;
  // The same as JSON: the reply to who asked for it.
  std::string Json() const;
  // One line with both versions and these times, in the log and for the service manager.
  void Report(ProblemLog &log) const;
};

// What this process inherits; nothing for one that was started afresh. Removes the variable, so that children inherit
// nothing, and makes every descriptor above the standard ones close-on-exec again.
std::optional<Inheritance> TakeInheritance();

// The content of a state file.
class MappedState {
 public:
  explicit MappedState(int fd);
  MappedState(const MappedState &) = delete;
  MappedState &operator=(const MappedState &) = delete;
  ~MappedState();

  // False, with errno, when it cannot be read. An empty state is invalid.
  bool valid() const { return !bytes_.empty(); }
  std::span<const std::byte> bytes() const { return bytes_; }

 private:
  std::span<const std::byte> bytes_;
};

}  // namespace zor::daemon

#endif
