// How long to wait before the next attempt to connect: a random part of a pause that doubles with each failure.
//
// A hundred thousand gateways lose a broker in the same moment, and must not all come back in another one. So nothing
// of a pause is fixed, the first one after a line that lasted included.
#ifndef ZORBRIDGE_RETRY_H
#define ZORBRIDGE_RETRY_H

#include <chrono>

namespace zor::bridge {

class Retry {
 public:
  struct Options {
    std::chrono::milliseconds first{10'000};
    std::chrono::milliseconds longest{300'000};
    // A line that lasted so long was a good one: the next pause is the first one again.
    std::chrono::milliseconds lasting{60'000};
  };

  explicit Retry(const Options &options) : options_(options), pause_(options.first) {}

  // The time until the next attempt. Doubles the pause after it.
  std::chrono::milliseconds Next();
  // The line has ended after this time. True if it had lasted.
  bool Ended(std::chrono::milliseconds lasted);
  // The broker has refused us: it will hardly think otherwise soon.
  void Refused() { pause_ = options_.longest; }

 private:
  Options options_;
  std::chrono::milliseconds pause_;
};

}  // namespace zor::bridge

#endif
