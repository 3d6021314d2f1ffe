// Plays many bridges to a broker: one process, one loop, no threads. Prints a line a second, and ends when all of their
// events have been acknowledged.
// Usage: players port PORT [gateways 100] [name played] [seconds 30] [rate 0.1] [wait 0] [status 60] [keep_alive 90]
//        [first_pause 10] [longest_pause 300] [linger 0] [patience 300] [tls DIRECTORY]
//   rate: events a second of each. wait: seconds before the first event. linger: stays at least so many seconds.
//   patience: seconds after which it gives up, with exit status 1. tls: the directory of authority.pem, certificate.pem
//   and key.pem, the same for all.
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <deque>
#include <set>
#include <string>
#include <utility>

#include "common/unique_fd.h"
#include "fleet/arguments.h"
#include "fleet/player.h"
#include "programs/problem_log.h"

namespace {

using namespace zor::fleet;
using std::chrono::milliseconds;
using std::chrono::seconds;

Clock::duration Seconds(double count) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(count));
}

class Stage {
 public:
  Stage(const Script &script, const std::string &name, int gateways) : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
    for (int i = 0; i < gateways; ++i) players_.emplace_back(Player(script, totals_, name + std::to_string(i)));
    for (std::size_t i = 0; i < players_.size(); ++i) Do(i);
  }

  // Until then, or a little longer.
  void RunUntil(Clock::time_point end) {
    while (Clock::now() < end) {
      std::array<epoll_event, 512> ready;
      const int count = ::epoll_wait(epoll_.get(), ready.data(), static_cast<int>(ready.size()), WaitMs(end));
      for (int i = 0; i < count; ++i) {
        const epoll_event &each = ready[static_cast<std::size_t>(i)];
        const auto index = static_cast<std::size_t>(each.data.u64);
        players_[index].player.OnReady((each.events & ~static_cast<uint32_t>(EPOLLOUT)) != 0,
                                       (each.events & EPOLLOUT) != 0);
        Do(index);
      }
      for (const Clock::time_point now = Clock::now(); !due_.empty() && due_.begin()->first <= now;) {
        Do(due_.begin()->second);
      }
    }
  }
  const Totals &totals() const { return totals_; }
  bool hasFinished() const {
    return std::all_of(players_.begin(), players_.end(), [](const Entry &each) { return each.player.hasFinished(); });
  }

 private:
  struct Entry {
    explicit Entry(Player each) : player(std::move(each)) {}
    Player player;
    Clock::time_point due;
    int watched = -1;
    uint32_t events = 0;
  };

  int WaitMs(Clock::time_point end) const {
    if (!due_.empty()) end = std::min(end, due_.begin()->first);
    return static_cast<int>(std::max<int64_t>(std::chrono::ceil<milliseconds>(end - Clock::now()).count(), 0));
  }

  // The player's timers, then what of it is watched. A closed socket has left the set by itself.
  void Do(std::size_t index) {
    Entry &entry = players_[index];
    const int before = entry.player.socket();
    due_.erase({entry.due, index});
    entry.due = entry.player.Work(Clock::now());
    due_.insert({entry.due, index});
    const int socket = entry.player.socket();
    const uint32_t events = EPOLLIN | (entry.player.wantsToWrite() ? EPOLLOUT : 0u);
    if (socket < 0) {
      entry.watched = -1;
      return;
    }
    if (socket == entry.watched && socket == before && events == entry.events) return;
    epoll_event event = {};
    event.events = events;
    event.data.u64 = index;
    // A new connection may have got the number of the last one.
    if (::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, socket, &event) != 0) {
      ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, socket, &event);
    }
    entry.watched = socket;
    entry.events = events;
  }

  zor::UniqueFd epoll_;
  Totals totals_;
  std::deque<Entry> players_;
  std::set<std::pair<Clock::time_point, std::size_t>> due_;
};

// As far as it may.
rlim_t RaiseDescriptors() {
  rlimit limit = {};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_cur;
}

void Print(long second, const Totals &totals) {
  const auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
  std::printf(
      "%4ld s: %llu connected, %llu events made, %llu acknowledged, %llu attempts, %llu unreached, %llu refused, "
      "%llu lost, %llu answered\n",
      second, number(totals.connected), number(totals.made), number(totals.acknowledged), number(totals.attempts),
      number(totals.unreached), number(totals.refused), number(totals.lost), number(totals.answered));
}

}  // namespace

int main(int argc, char **argv) {
  const Arguments arguments(argc, argv);
  const int gateways = arguments.Count("gateways", 100);
  const double rate = arguments.Number("rate", 0.1);
  Script script;
  script.port = static_cast<uint16_t>(arguments.Count("port", 0));
  script.prefix = arguments.Text("prefix", "zor");
  script.eventInterval = rate > 0 ? Seconds(1 / rate) : Clock::duration{};
  script.eventsBegin = Clock::now() + Seconds(arguments.Number("wait", 0));
  script.eventsEnd = script.eventsBegin + Seconds(arguments.Number("seconds", 30));
  script.statusInterval = Seconds(arguments.Number("status", 60));
  script.keepAliveSeconds = static_cast<uint16_t>(arguments.Count("keep_alive", 90));
  script.retry.first = milliseconds(static_cast<int64_t>(arguments.Number("first_pause", 10) * 1000));
  script.retry.longest = milliseconds(static_cast<int64_t>(arguments.Number("longest_pause", 300) * 1000));
  if (script.port == 0 || argc % 2 == 0) {
    std::fprintf(stderr,
                 "usage: players port PORT [gateways N] [name NAME] [rate EVENTS_PER_SECOND] [seconds N] ...\n");
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  zor::daemon::ProblemLog problems("players");
  if (const std::string directory = arguments.Text("tls", ""); !directory.empty()) {
    const zor::bridge::Tls files = {directory + "/authority.pem", directory + "/certificate.pem",
                                    directory + "/key.pem", ""};
    script.tls = zor::bridge::TlsContext::Make(files, {true, "127.0.0.1", script.port}, problems);
    if (script.tls == nullptr) return 1;
  }
  if (RaiseDescriptors() < static_cast<rlim_t>(gateways) + 64) {
    std::fprintf(stderr, "players: the limit of descriptors is too low for %d connections\n", gateways);
    return 1;
  }
  Stage stage(script, arguments.Text("name", "played"), gateways);
  const Clock::time_point begin = Clock::now();
  const Clock::time_point end = script.eventsEnd + Seconds(arguments.Number("patience", 300));
  const Clock::time_point atLeast = begin + Seconds(arguments.Number("linger", 0));
  for (long second = 1; Clock::now() < end; ++second) {
    stage.RunUntil(begin + seconds(second));
    Print(second, stage.totals());
    if (stage.hasFinished() && Clock::now() >= atLeast) return 0;
  }
  return 1;
}
