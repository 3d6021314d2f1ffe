// Where the copies of a monitor go: lines, JSON or a capture.
#ifndef ZORCTL_MONITOR_SINK_H
#define ZORCTL_MONITOR_SINK_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "programs/messages/bus_copy.h"

namespace zor::ctl {

struct Totals {
  uint64_t copies = 0;
  uint64_t missed = 0;

  std::string Text() const { return std::to_string(copies) + " copied, " + std::to_string(missed) + " missed"; }
};

class Sink {
 public:
  virtual ~Sink() = default;
  virtual void Take(std::string_view bytes, const messages::BusCopy &copy) = 0;
  // Called from time to time, and at the end.
  virtual void Refresh(const Totals &totals) = 0;
};

std::unique_ptr<Sink> MakeLineSink();
std::unique_ptr<Sink> MakeJsonSink();
// A capture; - is standard output. Failure when it cannot be written.
std::unique_ptr<Sink> MakeFileSink(const std::string &path);

}  // namespace zor::ctl

#endif
