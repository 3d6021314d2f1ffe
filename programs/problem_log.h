// Log lines about what is wrong, on standard error as "PROGRAM: text".
//
// A peer that misbehaves in a loop must neither flood the operator nor stop the server. So the lines are limited to a
// burst of 20 and then one a second, and a line that standard error cannot take at once is given up. What is left out
// is counted, and the next line that goes out says how many there were. A line takes no memory, so that a server
// without any can say so.
#ifndef PROGRAMS_PROBLEM_LOG_H
#define PROGRAMS_PROBLEM_LOG_H

#include <chrono>

#include "programs/limits.h"

namespace zor::daemon {

class ProblemLog {
 public:
  // The name must outlive the log.
  explicit ProblemLog(const char *program) : program_(program) {}
  ProblemLog(const ProblemLog &) = delete;
  ProblemLog &operator=(const ProblemLog &) = delete;
  // Says how many lines were left out at the end.
  ~ProblemLog();

  const char *program() const { return program_; }
  // One line; the newline is added here. Control characters in it become '?'.
  void Print(const char *format, ...) __attribute__((format(printf, 2, 3)));
  // The same followed by ": " and the text of errno.
  void PrintErrno(const char *format, ...) __attribute__((format(printf, 2, 3)));

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kRefill{1};

  bool MayPrint();
  void PrintLimited(const char *text);

  const char *program_;
  int credit_ = limits::kProblemBurst;
  Clock::time_point lastRefill_ = Clock::now();
  unsigned long leftOut_ = 0;
};

}  // namespace zor::daemon

#endif
