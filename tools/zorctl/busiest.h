// Which kind of message a monitor copied most often: what to leave out so that it keeps up.
#ifndef ZORCTL_BUSIEST_H
#define ZORCTL_BUSIEST_H

#include <cstdint>
#include <string>
#include <vector>

#include "programs/messages/bus_copy.h"

namespace zor::ctl {

class Busiest {
 public:
  struct Kind {
    uint32_t type = 0;
    std::string source;
    uint64_t count = 0;
  };

  void Add(const messages::BusCopy &copy);
  // The most frequent one; a count of 0 before any copy.
  Kind kind() const;

 private:
  static constexpr size_t kMaxKinds = 64;  // the rest is rare

  std::vector<Kind> kinds_;
  size_t latest_ = 0;  // the same kind often comes in a row
};

}  // namespace zor::ctl

#endif
