// What the counters of the message server lost between two looks at the bus: the latest losses, each with its time.
#ifndef ZORWEB_LOSSES_H
#define ZORWEB_LOSSES_H

#include <cstdint>
#include <deque>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "programs/bus_view/sample.h"

namespace zor::web {

class Losses {
 public:
  // Compares a sample with the one before. True if something was lost.
  bool Add(std::int64_t nowMs, const busview::Sample &before, const busview::Sample &now);
  // [{"time":MS,"name":NAME,"what":"dropped"|"refused"|"restart","count":N},...], the latest first.
  nlohmann::ordered_json AsJson() const;

 private:
  struct Loss {
    std::int64_t timeMs;
    std::string name;  // of a daemon; empty: the server
    const char *what;
    std::uint64_t count;
  };

  void Put(Loss loss);

  std::deque<Loss> losses_;  // the latest first
};

}  // namespace zor::web

#endif
