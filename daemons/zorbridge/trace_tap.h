// The request call/bridge/trace: the trace lines of one daemon, for a time.
//
// A daemon gets its trace settings from the message server when it registers. So the bridge has them replaced there:
// levels as requested, and as output a UDP port of the loopback address at which it listens. What was set before is
// written to a file first, and restored when the time is over, when the bridge stops, or, if it crashed meanwhile, at
// its next start. What cannot be restored since the message server has gone is restored when that is back. Both take
// effect when the daemon registers the next time.
#ifndef ZORBRIDGE_TRACE_TAP_H
#define ZORBRIDGE_TRACE_TAP_H

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "programs/loop_watch.h"
#include "programs/problem_log.h"
#include "zorbridge/requests.h"
#include "zorbridge/uplink.h"

namespace zor::bridge {

class TraceTap {
 public:
  // `path` is that of the file, a real one.
  TraceTap(std::string path, Uplink &uplink, daemon::ProblemLog &problems);
  TraceTap(const TraceTap &) = delete;
  TraceTap &operator=(const TraceTap &) = delete;

  void Serve(const Requests::Own &request);
  // On the bus: restores what a bridge that crashed has left.
  void RestoreLeft();
  // On the bus again.
  void OnRejoined();
  // Ends everything, before the bridge leaves the bus.
  void Stop();

 private:
  // The lines of one daemon.
  struct Tap {
    TraceTap *owner = nullptr;
    std::string daemon;
    std::string former;  // settings, JSON of the message server; empty: not known yet
    uint16_t port = 0;
    daemon::LoopWatch socket;
    daemon::LoopTimer timer;
    std::chrono::steady_clock::time_point second{};  // in which the lines are counted
    uint32_t lines = 0;
  };
  // Former settings that are not restored yet.
  struct Left {
    std::string former;
    bool asked = false;  // the message server has been, and its reply is to come
  };

  static bool Listen(Tap &tap);
  static void OnReadable(void *tap, uint32_t event);
  static void OnTimeOver(void *tap);
  void Begin(Tap &tap, const std::string &settings, uint32_t seconds, const Requests::Own &request);
  void Pass(Tap &tap, std::string_view line);
  void End(const std::string &daemon);
  void Restore(const std::string &daemon);
  void OnRestored(const std::string &daemon, const ZOR_MSG_HEAD *reply, daemon::NoReply why);
  // All settings that are to be restored.
  bool WriteFile() const;

  std::string path_;
  Uplink &uplink_;
  daemon::ProblemLog &problems_;
  std::map<std::string, std::unique_ptr<Tap>, std::less<>> taps_;
  std::map<std::string, Left, std::less<>> left_;  // by daemon
};

}  // namespace zor::bridge

#endif
