// Measures on one processor, in several rounds, with ratios within a round and medians over the rounds. Machines are
// noisy: two alternatives can be compared at the same moment on the same machine, but not on two days.
#ifndef BENCH_HARNESS_H
#define BENCH_HARNESS_H

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace zor::bench {

constexpr int kRounds = 9;

// Pins this process and its children to one processor.
void PinToOneProcessor();

// Monotonic nanoseconds.
double Now();

double Median(std::vector<double> values);
double Percentile(std::vector<double> values, double fraction);

// The cost of one call in nanoseconds, from the durations of many.
struct Cost {
  double mean = 0;
  double p50 = 0;
  double p99 = 0;
};
Cost CostOf(const std::vector<double> &durations);

// Times each of count calls, after a few to warm up.
Cost TimeEach(std::size_t count, const std::function<void()> &call);

// Nanoseconds per call, from the duration of count of them.
double TimeAll(std::size_t count, const std::function<void()> &call);

// Runs a function in a child process; the destructor kills it.
class Process {
 public:
  explicit Process(const std::function<void()> &body);
  ~Process();
  Process(const Process &) = delete;
  Process &operator=(const Process &) = delete;
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

// A temporary system root below TMPDIR with a message server running in it. A gateway keeps it on a tmpfs.
class System {
 public:
  // With these settings of the server.
  explicit System(const std::string &msgsvr, const std::string &settings = "");
  ~System();
  System(const System &) = delete;
  System &operator=(const System &) = delete;
  pid_t server() const { return server_; }
  const std::string &root() const { return root_; }

 private:
  std::string root_;
  pid_t server_;
};

// Exits with a message when the condition does not hold: figures of something broken are worthless.
void Require(bool condition, const char *what);

}  // namespace zor::bench

#endif
