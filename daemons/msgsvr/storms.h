// Storms: two daemons that keep each other busy. Each sends the other messages of one type, faster than storm_rate, for
// storm_seconds: mostly replies that cause replies, or a request that is repeated without a pause. The log names each
// storm once; again only after it has subsided.
#ifndef MSGSVR_STORMS_H
#define MSGSVR_STORMS_H

#include <vector>

#include "msgsvr/bus.h"

namespace zor::msgsvr {

class Storms {
 public:
  explicit Storms(Bus &bus) : bus_(bus) {}

  // Looks at what was counted in the last so many milliseconds.
  void Look(uint32_t elapsedMs);

  struct Storm {
    uint64_t ids[2]{};  // the older client's first
    uint32_t type = 0;  // of its messages
    uint32_t sinceMs = 0;
    bool named = false;
    bool lasts = false;  // seen in the latest look
  };
  const std::vector<Storm> &storms() const { return storms_; }
  void Restore(std::vector<Storm> storms) { storms_ = std::move(storms); }

 private:
  struct Direction {
    const Client *from;
    Flows::Flow flow;
  };

  bool IsFast(const Flows::Flow &flow) const;
  const Flows::Flow *FastestTo(const Client &from, uint64_t to) const;
  void Note(const Direction &there, const Direction &back);
  Storm &Find(const Direction &there, const Direction &back);
  void Name(const Storm &storm, const Direction &there, const Direction &back);

  Bus &bus_;
  uint32_t elapsedMs_ = 0;
  std::vector<Storm> storms_;
};

}  // namespace zor::msgsvr

#endif
