#include "footprint/program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <set>
#include <sstream>
#include <utility>

#include "harness.h"

namespace zor::bench {
namespace {

constexpr int kMostStartMs = 30'000;
constexpr int kMostEndMs = 5000;

pid_t Spawn(const Program &program, int output) {
  std::vector<char *> words;
  for (const std::string &word : program.command) words.push_back(const_cast<char *>(word.c_str()));
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  pid_t pid = -1;
  const int error = ::posix_spawn(&pid, words[0], &actions, nullptr, words.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  Require(error == 0, ("start " + program.name).c_str());
  return pid;
}

void AwaitLine(const Program &program, int output) {
  std::string printed;
  while (printed.find(program.ready) == printed.npos) {
    pollfd waited = {output, POLLIN, 0};
    char bytes[512];
    const bool came = ::poll(&waited, 1, kMostStartMs) == 1;
    const ssize_t count = came ? ::read(output, bytes, sizeof bytes) : 0;
    Require(count > 0, (program.name + " is ready; it printed: " + printed).c_str());
    printed.append(bytes, static_cast<std::size_t>(count));
  }
}

}  // namespace

Running::Running(const Program &program) {
  int ends[2];
  Require(::pipe2(ends, O_CLOEXEC) == 0, "pipe");
  const double start = Now();
  pid_ = Spawn(program, ends[1]);
  ::close(ends[1]);
  output_ = ends[0];
  AwaitLine(program, output_);
  startMs_ = (Now() - start) / 1e6;
}

Running::Running(Running &&other) noexcept
    : pid_(std::exchange(other.pid_, -1)), output_(std::exchange(other.output_, -1)), startMs_(other.startMs_) {}

Running::~Running() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGTERM);
  for (int waitedMs = 0; ::waitpid(pid_, nullptr, WNOHANG) == 0; ++waitedMs) {
    if (waitedMs == kMostEndMs) ::kill(pid_, SIGKILL);
    ::usleep(1000);
  }
  ::close(output_);
}

Footprint Running::footprint() const {
  Footprint result;
  std::ifstream rollup("/proc/" + std::to_string(pid_) + "/smaps_rollup");
  for (std::string line; std::getline(rollup, line);) {
    std::istringstream words(line);
    std::string field;
    long value = 0;
    if (!(words >> field >> value)) continue;
    if (field == "Private_Clean:") result.privateClean = value;
    if (field == "Private_Dirty:") result.privateDirty = value;
    if (field == "Shared_Clean:" || field == "Shared_Dirty:") result.shared += value;
    if (field == "Pss:") result.proportional = value;
  }
  Require(result.proportional > 0, "the kernel reports the memory of the process");
  result.libraries = libraries().size();
  return result;
}

std::vector<std::string> Running::libraries() const {
  std::ifstream mappings("/proc/" + std::to_string(pid_) + "/maps");
  std::set<std::string> names;
  for (std::string line; std::getline(mappings, line);) {
    const std::size_t slash = line.rfind('/');
    const std::string name = slash == line.npos ? "" : line.substr(slash + 1);
    if (name.find(".so") != name.npos) names.insert(name);
  }
  return {names.begin(), names.end()};
}

}  // namespace zor::bench
