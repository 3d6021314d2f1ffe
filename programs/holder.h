// To whom a server charges what a client costs.
#ifndef PROGRAMS_HOLDER_H
#define PROGRAMS_HOLDER_H

#include <sys/types.h>

#include <compare>
#include <cstdint>

namespace zor::daemon {

// A process on this machine, or another board.
struct Holder {
  uid_t user;
  int64_t process;                                                    // its number, or the board's address
  friend auto operator<=>(const Holder &, const Holder &) = default;  // NOLINT(modernize-use-nullptr): there is none
};

}  // namespace zor::daemon

#endif
