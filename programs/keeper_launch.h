// Starts a keeper's server: the same program with the same arguments without --keeper, the stored descriptors from
// number 3 on and the environment variables that describe them.
#ifndef PROGRAMS_KEEPER_LAUNCH_H
#define PROGRAMS_KEEPER_LAUNCH_H

#include <sys/resource.h>
#include <sys/types.h>

#include <array>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "programs/keeper_store.h"
#include "programs/problem_log.h"
#include "programs/succession.h"

namespace zor::daemon {

class KeeperLaunch {
 public:
  // Everything that takes memory is prepared here. `signals` is the server's signal mask, notifyPath is where it
  // notifies the keeper, `watchdog` the interval in which it must do so. Its limit of descriptors is this process's
  // now.
  KeeperLaunch(const ProgramImage &image, const sigset_t &signals, const std::string &notifyPath,
               std::chrono::microseconds watchdog);

  // Returns the process, or -1 with errno. Logs what could not be passed.
  pid_t Start(KeeperStore &store, ProblemLog &log);

 private:
  using Text = std::array<char, 32>;

  size_t WriteNames(KeeperStore &store, ProblemLog &log);
  [[noreturn]] void Execute(std::span<KeeperStore::Entry> passed, pid_t keeper, ProblemLog &log);

  const ProgramImage &image_;
  std::vector<char *> arguments_;
  std::string notifySocket_;
  std::string watchdog_;
  Text watchdogPid_;
  Text listenPid_;
  Text listenCount_;
  std::unique_ptr<char[]> names_;
  std::vector<char *> environment_;
  sigset_t signals_;
  rlimit descriptors_;
};

}  // namespace zor::daemon

#endif
