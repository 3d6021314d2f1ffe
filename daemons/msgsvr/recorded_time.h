// Times on the steady clock as numbers in records: it runs on while one server process follows another.
#ifndef MSGSVR_RECORDED_TIME_H
#define MSGSVR_RECORDED_TIME_H

#include <chrono>
#include <cstdint>

#include "msgsvr/client.h"

namespace zor::msgsvr {

inline int64_t Nanoseconds(Clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

inline Clock::time_point TimeOf(int64_t nanoseconds) {
  return Clock::time_point(std::chrono::nanoseconds(nanoseconds));
}

// Whether a server can have recorded that time: no period that it waits for is longer than a day.
inline bool IsTime(int64_t nanoseconds) {
  return nanoseconds >= 0 && nanoseconds <= Nanoseconds(Clock::now() + std::chrono::hours(24));
}

}  // namespace zor::msgsvr

#endif
