// Asks the message server for its list without ever blocking the screen: a process of its own is the bus's client,
// since calls of the library may wait, and are limited by ending the process. A connection that fails is made anew with
// the next request.
#ifndef ZORCTL_SAMPLER_H
#define ZORCTL_SAMPLER_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "common/unique_fd.h"
#include "zorctl/deadline.h"
#include "zorctl/exit_code.h"

namespace zor::ctl {

class Sampler {
 public:
  struct Answer {
    std::string list;
    std::chrono::microseconds time{};  // from request to reply
    std::optional<Failure> failure;    // instead of a list
  };

  explicit Sampler(Milliseconds timeout) : timeout_(timeout) {}
  ~Sampler();
  Sampler(const Sampler &) = delete;
  Sampler &operator=(const Sampler &) = delete;

  // Requests a list unless a request is under way.
  void Ask();
  // The answer, when it is complete; does not wait.
  std::optional<Answer> Take();
  // Becomes readable when there may be an answer; -1 while there is nothing to wait for.
  int fd() const { return asking_ ? fd_.get() : -1; }
  bool asking() const { return asking_; }
  Milliseconds askingFor() const;

 private:
  using Clock = std::chrono::steady_clock;

  void Start();
  void End();
  Answer Broken();

  Milliseconds timeout_;
  pid_t child_ = -1;
  UniqueFd fd_;
  bool asking_ = false;
  Clock::time_point asked_;
  std::string received_;
};

}  // namespace zor::ctl

#endif
