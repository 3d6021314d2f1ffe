// Log lines about what is wrong, on standard error as "PROGRAM: text".
//
// A peer that misbehaves in a loop must neither flood the operator nor stop the server, nor keep the server from
// reporting others. So lines are limited to a burst and then one a second: those about the clients of one user, those
// about one client among them, and those about no client, each separately. A line that standard error cannot take at
// once is given up. What is left out is counted, and the next line of that kind that goes out says how many there were.
// A line takes no memory, so that a server without any can say so.
#ifndef PROGRAMS_PROBLEM_LOG_H
#define PROGRAMS_PROBLEM_LOG_H

#include <array>
#include <chrono>
#include <cstdarg>

#include "programs/holder.h"
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
  // The same as Print about one client, which causes the line and cannot keep others from being reported.
  void PrintOf(const Holder &client, const char *format, ...) __attribute__((format(printf, 3, 4)));

 private:
  using Clock = std::chrono::steady_clock;
  // Lines that may still be printed; some are earned again as time passes.
  struct Credit {
    int lines = 0;
    Clock::time_point earnedAt{};
    unsigned long leftOut = 0;

    bool Earn(Clock::time_point now, int most, std::chrono::seconds forOne);
  };
  struct Kept {
    Holder key{};
    Credit credit;
    Clock::time_point usedAt{};
  };
  // Those that were least recently used are forgotten.
  template <size_t kSize>
  using Table = std::array<Kept, kSize>;

  void PrintLimited(const char *text);
  template <size_t kSize>
  Credit &Find(Table<kSize> &table, const Holder &key, int burst, Clock::time_point now);
  void SayLeftOut(const Kept &kept);

  const char *program_;
  Credit own_{limits::kProblemBurst, Clock::now(), 0};
  Table<32> clients_{};
  Table<8> users_{};
};

}  // namespace zor::daemon

#endif
