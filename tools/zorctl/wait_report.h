// Who waits for whom on a bus, for users: the chain of daemons that begins at one, and the requests along it.
#ifndef ZORCTL_WAIT_REPORT_H
#define ZORCTL_WAIT_REPORT_H

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "programs/wait_graph.h"

namespace zor::ctl {

// The daemons in the message server's list, without this command. Where their processes are not on this machine, their
// states are unknown.
enum class Processes { kHere, kElsewhere };
std::vector<daemon::Daemon> DaemonsOf(const nlohmann::json &list, Processes processes);

// A request and its sender.
struct Waiter {
  const daemon::Daemon *from;
  const daemon::PendingRequest *request;
};

// Points into the daemons given.
class WaitReport {
 public:
  WaitReport(const std::vector<daemon::Daemon> &daemons, const daemon::Daemon &subject);

  const std::string &verdict() const { return verdict_; }
  void PrintText() const;
  nlohmann::json AsJson() const;

 private:
  void Add(const Waiter &waiter);

  daemon::WaitChain chain_;
  std::string verdict_;
  std::vector<Waiter> waiters_;
};

// A report for every chain of daemons that wait for a second or longer, from the daemon for which no other waits.
std::vector<WaitReport> ReportsOfAll(const std::vector<daemon::Daemon> &daemons);

}  // namespace zor::ctl

#endif
