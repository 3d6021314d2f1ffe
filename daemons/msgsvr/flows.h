// How many messages a client has sent to which others since the last look, for the types that it sends most. Counting
// must cost next to nothing, so there are few counters: a message that finds none of its own takes one off each, so
// that what makes up a fifth of the traffic keeps its counter, a little short of the truth. Their memory is taken with
// the first message and given back when they are cleared: most clients are mostly silent.
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
    uint64_t to = 0;  // a client's id
    uint32_t type = 0;
    uint32_t count = 0;
    friend bool operator==(const Flow &, const Flow &) = default;
  };
  using Table = std::array<Flow, 4>;

  Flows() = default;
  // Throws std::bad_alloc.
  explicit Flows(const Table &flows) : flows_(flows == Table() ? nullptr : new Table(flows)) {}

  // Without memory it is not counted.
  void Count(uint64_t to, uint32_t type) {
    if (flows_ == nullptr) flows_.reset(new (std::nothrow) Table());
    if (flows_ == nullptr) return;
    for (Flow &flow : *flows_) {
      if (flow.to == to && flow.type == type) {
        ++flow.count;
        return;
      }
    }
    CountNew(to, type);
  }
  const Table &flows() const { return flows_ == nullptr ? kNone : *flows_; }
  void Clear() { flows_.reset(); }
  size_t HeldBytes() const { return flows_ == nullptr ? 0 : sizeof(Table); }

 private:
  void CountNew(uint64_t to, uint32_t type);

  static const Table kNone;

  std::unique_ptr<Table> flows_;
};

}  // namespace zor::msgsvr

#endif
