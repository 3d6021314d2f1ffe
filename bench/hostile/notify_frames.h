// Notifications, and datagrams to the logging daemon, as a hostile process sends them.
#ifndef BENCH_HOSTILE_NOTIFY_FRAMES_H
#define BENCH_HOSTILE_NOTIFY_FRAMES_H

#include <string>

#include "hostile/dice.h"

namespace zor::hostile {

class NotifyFrames {
 public:
  explicit NotifyFrames(Dice &dice) : dice_(dice) {}
  std::string Next();
  std::string Registration(bool good);

 private:
  uint32_t Module();
  uint32_t Type();

  Dice &dice_;
};

// A datagram to the logging daemon.
std::string LogDatagram(Dice &dice);

}  // namespace zor::hostile

#endif
