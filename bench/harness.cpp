#include "harness.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <numeric>

namespace zor::bench {

void PinToOneProcessor() {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<std::size_t>(::sched_getcpu()), &set);
  ::sched_setaffinity(0, sizeof set, &set);
}

double Now() {
  struct timespec now = {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double Percentile(std::vector<double> values, double fraction) {
  const auto at = static_cast<std::ptrdiff_t>(fraction * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + at, values.end());
  return values[static_cast<std::size_t>(at)];
}

double Median(std::vector<double> values) {
  return Percentile(std::move(values), 0.5);
}

Cost CostOf(const std::vector<double> &durations) {
  const double sum = std::accumulate(durations.begin(), durations.end(), 0.0);
  return {sum / static_cast<double>(durations.size()), Percentile(durations, 0.5), Percentile(durations, 0.99)};
}

Cost TimeEach(std::size_t count, const std::function<void()> &call) {
  for (std::size_t i = 0; i < count / 10 + 1; ++i) call();
  std::vector<double> durations(count);
  for (double &duration : durations) {
    const double start = Now();
    call();
    duration = Now() - start;
  }
  return CostOf(durations);
}

double TimeAll(std::size_t count, const std::function<void()> &call) {
  for (std::size_t i = 0; i < count / 10 + 1; ++i) call();
  const double start = Now();
  for (std::size_t i = 0; i < count; ++i) call();
  return (Now() - start) / static_cast<double>(count);
}

Process::Process(const std::function<void()> &body) : pid_((std::fflush(nullptr), ::fork())) {
  Require(pid_ >= 0, "fork");
  if (pid_ != 0) return;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  body();
  ::_exit(0);
}

Process::~Process() {
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

System::System(const std::string &msgsvr, const std::string &settings) {
  const char *directory = std::getenv("TMPDIR");
  root_ = std::string(directory == nullptr ? "/tmp" : directory) + "/zor-bench.XXXXXX";
  Require(::mkdtemp(root_.data()) != nullptr, "mkdtemp");
  ::setenv("ZOR_ROOT", root_.c_str(), 1);
  const std::string file = root_ + "/msgsvr.conf";
  std::ofstream(file) << settings;
  int ready[2];
  Require(::pipe2(ready, O_CLOEXEC) == 0, "pipe2");
  server_ = ::fork();
  if (server_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(ready[1], 1);
    ::execl(msgsvr.c_str(), "msgsvr", "--settings", file.c_str(), nullptr);
    ::_exit(127);
  }
  ::close(ready[1]);
  char line[128];
  Require(::read(ready[0], line, sizeof line) > 0, "the message server says that it listens");
  ::close(ready[0]);
}

System::~System() {
  ::kill(server_, SIGTERM);
  ::waitpid(server_, nullptr, 0);
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

void Require(bool condition, const char *what) {
  if (condition) return;
  std::fprintf(stderr, "benchmark: failed: %s\n", what);
  std::_Exit(1);
}

}  // namespace zor::bench
