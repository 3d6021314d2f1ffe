// How many messages a client has sent to which others since the last look, for the types that it sends most, and how
// many a second that were between the two looks before. Counting must cost next to nothing, so there are few counters:
// a message that finds none of its own takes one off each, so that what makes up a fifth of the traffic keeps its
// counter, a little short of the truth. Their memory is taken with the first message and given back by the first look
// at which the client has sent nothing: most clients are mostly silent.
#ifndef MSGSVR_FLOWS_H
#define MSGSVR_FLOWS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

namespace zor::msgsvr {

class Flows {
 public:
  struct Flow {
    uint64_t to = 0;  // a client's id; 0: the server
    uint32_t type = 0;
    uint32_t count = 0;  // 0: not in use
    friend bool operator==(const Flow &, const Flow &) = default;
  };
  using Table = std::array<Flow, 4>;
  struct State {
    Table counts;  // since the last look
    Table rates;   // a second, in the look before
    friend bool operator==(const State &, const State &) = default;
  };

  Flows() = default;
  // Throws std::bad_alloc.
  explicit Flows(const State &state) : state_(state == State() ? nullptr : new State(state)) {}

  // Without memory it is not counted.
  void Count(uint64_t to, uint32_t type) {
    if (state_ == nullptr) state_.reset(new (std::nothrow) State());
    if (state_ == nullptr) return;
    for (Flow &flow : state_->counts) {
      if (flow.to == to && flow.type == type) {
        ++flow.count;
        return;
      }
    }
    CountNew(to, type);
  }
  const State &state() const { return state_ == nullptr ? kNone : *state_; }
  // Makes rates of the counts of that time, and starts to count again.
  void Look(uint32_t elapsedMs);
  bool empty() const { return state_ == nullptr; }
  size_t HeldBytes() const { return state_ == nullptr ? 0 : sizeof(State); }

 private:
  void CountNew(uint64_t to, uint32_t type);

  static const State kNone;

  std::unique_ptr<State> state_;
};

}  // namespace zor::msgsvr

#endif
