// One turn of the loop beside a bare select with a scan.
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>
#include <zor/uv.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "harness.h"

namespace {

using namespace zor::bench;

constexpr std::size_t kTurns = 20000;

std::size_t g_turnsLeft;

void OnReady(UvIO *watcher, std::uint32_t) {
  if (--g_turnsLeft == 0) ZOR_UV_LoopStop(watcher->header.loop);
}

void Never(void *) {}

std::vector<int> Descriptors(std::size_t count) {
  std::vector<int> fds(count);
  for (int &fd : fds) fd = ::eventfd(0, EFD_CLOEXEC);
  Require(fds.back() >= 0 && fds.back() < FD_SETSIZE, "enough descriptors");
  const std::uint64_t one = 1;
  Require(::write(fds[count / 2], &one, sizeof one) == sizeof one, "make one descriptor ready");
  return fds;
}

// Find the earliest timer, copy the sets, select, look at every descriptor, note the ready ones.
double BareTurn(const std::vector<int> &fds, const std::vector<double> &expiries) {
  fd_set watched;
  FD_ZERO(&watched);
  for (const int fd : fds) FD_SET(fd, &watched);
  const fd_set none = {};
  volatile std::size_t ready = 0;
  return TimeAll(kTurns, [&] {
    fd_set readable = watched;
    fd_set writable = none;
    fd_set exceptional = none;
    struct timeval timeout = {0x7fffffff, 0};
    if (!expiries.empty()) {
      const double now = Now();
      double earliest = expiries[0];
      for (const double expiry : expiries) earliest = std::min(earliest, std::max(expiry - now, 0.0));
      timeout.tv_sec = static_cast<time_t>(earliest / 1e9);
    }
    ::select(fds.back() + 1, &readable, &writable, &exceptional, &timeout);
    for (const int fd : fds) {
      if (FD_ISSET(fd, &readable)) ready = ready + 1;
    }
  });
}

double LoopTurn(UvLoop *loop) {
  g_turnsLeft = kTurns / 10;
  ZOR_UV_LoopRun(loop, 0);
  g_turnsLeft = kTurns;
  const double start = Now();
  ZOR_UV_LoopRun(loop, 0);
  return (Now() - start) / kTurns;
}

void Compare(std::size_t descriptors, std::size_t timers) {
  const std::vector<int> fds = Descriptors(descriptors);
  UvLoop loop;
  ZOR_UV_LoopInit(&loop);
  for (const int fd : fds) {
    auto *io = static_cast<UvIO *>(std::calloc(1, sizeof(UvIO)));
    Require(ZOR_UV_IOInit(&loop, io, fd, OnReady) == ZOR_OK && ZOR_UV_IOStart(io, UV_READABLE) == ZOR_OK, "watch");
  }
  for (std::size_t i = 0; i < timers; ++i) {
    auto *timer = static_cast<UvTimer *>(std::calloc(1, sizeof(UvTimer)));
    Require(ZOR_UV_TimerInit(&loop, timer) == ZOR_OK, "a timer");
    ZOR_UV_TimerStart(timer, 3600000, 0, Never, nullptr);
  }
  const std::vector<double> expiries(timers, Now() + 3600e9);
  std::vector<double> ours, ratio;
  for (int round = 0; round < kRounds; ++round) {
    const double theirs = BareTurn(fds, expiries);
    const double mine = LoopTurn(&loop);
    ours.push_back(mine);
    ratio.push_back(mine / theirs);
  }
  std::printf("%-12zu %-8zu %10.0f %8.2f\n", descriptors, timers, Median(ours), Median(ratio));
  ZOR_UV_LoopDestroy(&loop);
  for (const int fd : fds) ::close(fd);
}

}  // namespace

int main() {
  PinToOneProcessor();
  std::printf("one turn of the loop, beside a bare select and scan (median of %d rounds)\n", kRounds);
  std::printf("%-12s %-8s %10s %8s\n", "descriptors", "timers", "ns/turn", "ratio");
  for (const std::size_t descriptors : {1, 10, 100, 900}) Compare(descriptors, 0);
  for (const std::size_t timers : {1, 100}) Compare(1, timers);
  return 0;
}
