// A script that works on one request: a process group of its own, without a shell between. The request's body is its
// standard input, what it writes to standard output is the reply.
#ifndef ZORCTL_SCRIPT_RUN_H
#define ZORCTL_SCRIPT_RUN_H

#include <sys/types.h>

#include <csignal>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/unique_fd.h"
#include "zorctl/bus.h"
#include "zorctl/deadline.h"

namespace zor::ctl {

class ScriptRun {
 public:
  using Environment = std::vector<std::string>;  // NAME=VALUE, besides the tool's own

  // `mask` is the signal mask of the script. What cannot be started has ended with a status.
  ScriptRun(const std::string &path, const Environment &environment, Message request, Milliseconds limit,
            const sigset_t &mask);
  ScriptRun(const ScriptRun &) = delete;
  ScriptRun &operator=(const ScriptRun &) = delete;
  // Kills the group.
  ~ScriptRun();

  // False when it has ended or could not be started.
  bool running() const { return pid_ >= 0; }
  // The end of the script's output, to be polled; -1 when that is closed.
  int output() const { return output_.get(); }
  // Takes the output that has arrived.
  void Read();
  // Looks whether the script has ended, and kills one whose time is over.
  bool Ended();

  const Message &request() const { return request_; }
  const Deadline &deadline() const { return deadline_; }
  // Valid when it has ended: 0, the exit code, or one of zor/status.h.
  uint32_t status() const { return status_; }
  const std::string &reply() const { return reply_; }
  uint64_t AgeMs() const;

 private:
  int Kill();
  void End(uint32_t status);

  Message request_;
  std::chrono::steady_clock::time_point start_;
  Deadline deadline_;
  pid_t pid_ = -1;  // of a script that has not been waited for
  UniqueFd output_;
  std::string reply_;
  uint32_t status_ = 0;
  bool tooLong_ = false;
};

}  // namespace zor::ctl

#endif
