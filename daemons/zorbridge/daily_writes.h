// Bounds the bytes that are written to the flash in a day.
//
// A day has 24 hours of the steady clock and begins with the first start, so that setting the clock changes nothing.
// Used bytes persist, ahead by a step, since saving each of them would cost as much as it counts. After a crash they
// are overestimated by at most that step, which grows with what the process has written: many short lives must not use
// up the day with what they never wrote. The time that has passed is as of the last saving, which takes place at least
// hourly while anything is written, and with a clean stop.
#ifndef ZORBRIDGE_DAILY_WRITES_H
#define ZORBRIDGE_DAILY_WRITES_H

#include <chrono>
#include <cstdint>

namespace zor::bridge {

class DailyWrites {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  struct Saved {
    std::uint64_t bytes = 0;
    std::uint64_t seconds = 0;  // of the day
  };

  void Start(std::uint64_t limit, TimePoint now);
  // What was saved before this process started; counts besides what has been written meanwhile.
  void Resume(const Saved &saved, TimePoint now);
  void Count(std::uint64_t bytes) {
    used_ += bytes;
    written_ += bytes;
  }

  bool UsedUp(TimePoint now);
  std::uint64_t used() const { return used_; }
  TimePoint end() const;

  // Whether the next transaction must save it.
  bool MustSave(TimePoint now);
  // With a clean stop it is exact.
  Saved ToSave(TimePoint now, bool exact) const;
  void HaveSaved(const Saved &saved, TimePoint now);

 private:
  void Turn(TimePoint now);

  std::uint64_t limit_ = 0;
  std::uint64_t used_ = 0;
  std::uint64_t written_ = 0;  // by this process
  std::uint64_t saved_ = 0;
  TimePoint begin_{};
  TimePoint savedAt_{};
};

}  // namespace zor::bridge

#endif
