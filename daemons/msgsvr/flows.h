// How many messages a client has sent to which others since the last look, for the types that it sends most. Counting
// must cost next to nothing, so there are few counters and none is allocated: a message that finds none of its own
// takes one off each, so that what makes up a fifth of the traffic keeps its counter, a little short of the truth.
#ifndef MSGSVR_FLOWS_H
#define MSGSVR_FLOWS_H

#include <array>
#include <cstdint>

namespace zor::msgsvr {

class Flows {
 public:
  struct Flow {
    uint64_t to = 0;  // a client's id
    uint32_t type = 0;
    uint32_t count = 0;
  };

  Flows() = default;
  explicit Flows(const std::array<Flow, 4> &flows) : flows_(flows) {}

  void Count(uint64_t to, uint32_t type) {
    for (Flow &flow : flows_) {
      if (flow.to == to && flow.type == type) {
        ++flow.count;
        return;
      }
    }
    CountNew(to, type);
  }
  const std::array<Flow, 4> &flows() const { return flows_; }
  void Clear() { flows_ = {}; }

 private:
  void CountNew(uint64_t to, uint32_t type);

  std::array<Flow, 4> flows_{};
};

}  // namespace zor::msgsvr

#endif
