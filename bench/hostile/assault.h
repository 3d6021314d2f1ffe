// What hostile processes do to one server: as members, whose connections have a name or a module, or as strangers,
// whose have none. Connections are torn in the middle of a frame, left half open, closed at once, and opened again.
#ifndef BENCH_HOSTILE_ASSAULT_H
#define BENCH_HOSTILE_ASSAULT_H

#include <cstdint>
#include <memory>
#include <string>

#include "hostile/dice.h"
#include "hostile/honest.h"

namespace zor::hostile {

class Assault {
 public:
  virtual ~Assault() = default;
  // Sends some frames or datagrams; returns how many.
  virtual uint32_t Strike() = 0;
  // Closes everything.
  virtual void Withdraw() = 0;
};

std::unique_ptr<Assault> MakeAssault(Service service, bool asMember, Dice &dice, const std::string &root);

}  // namespace zor::hostile

#endif
