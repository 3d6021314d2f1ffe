// The queue's records that are in memory, and how many there are in the file only.
//
// In order: the front, whose first records are in flight; the hole, which is in the file only; the back. While there is
// no hole, all records are in the front. Those from one key on have not been written; they are in memory.
#ifndef ZORBRIDGE_RECORD_WINDOW_H
#define ZORBRIDGE_RECORD_WINDOW_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <optional>

#include "zorbridge/kept_record.h"

namespace zor::bridge {

class RecordWindow {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  struct Hole {
    std::uint64_t records = 0;
    std::uint64_t bytes = 0;
    std::int64_t firstKey = 0;
    std::int64_t endKey = 0;  // the one after the last
    std::int64_t fromMs = 0;
    std::int64_t toMs = 0;
  };

  // The newest one, not written yet.
  void Push(KeptRecord record);

  // The oldest one that has not been handed out; null when it is not in memory, or when those in flight are of another
  // stream.
  const KeptRecord *Next();
  void HandedOut();
  // Whether records have left the queue.
  bool Acknowledge(std::uint64_t number);
  void Rewind() { handedOut_ = foreign_ = 0; }

  // Calls function(record) for each one that is to be written.
  template <typename Function>
  bool ForEachUnwritten(Function function) const;
  // All have been. Written ones that do not fit into so many bytes leave the memory.
  void Written(std::uint64_t bytes);
  std::optional<TimePoint> OldestUnwritten() const;
  std::uint64_t unwrittenBytes() const { return unwrittenBytes_; }
  // Of the records in the file that are not wanted any more: those before FirstKey.
  std::uint64_t staleBytes() const { return staleBytes_; }
  void StaleRemoved() { staleBytes_ = 0; }

  // A file has been opened that holds older records. Everything else is unwritten and handed out again. What is in
  // flight must be acknowledged before, since its numbers may be those of older records.
  void PutFirst(const Hole &hole);
  // The next record of the hole, which has been read back.
  void Restore(KeptRecord record);
  // The next record to be handed out is in the hole.
  bool WantsHole() const { return hole_.records > 0 && handedOut_ >= front_.size() && foreign_ == 0; }
  const Hole &hole() const { return hole_; }
  // The file is lost with the hole, whose place this record takes if there is one. Everything else is unwritten.
  void LoseFile(KeptRecord instead);
  // Adds to the numbers of all streams.
  void MoveStreams(std::int64_t by);

  // The oldest key that is wanted; `next` is that of the next record.
  std::int64_t FirstKey(std::int64_t next) const;
  std::optional<std::int64_t> OldestMs() const;
  std::uint64_t records() const { return front_.size() + back_.size() + hole_.records; }
  std::uint64_t bytes() const { return frontBytes_ + backBytes_ + hole_.bytes; }

 private:
  void CloseHole();
  void ToHole(const KeptRecord &record);
  void AllUnwritten();
  void PopAcknowledged();

  std::deque<KeptRecord> front_;
  std::deque<KeptRecord> back_;
  Hole hole_;
  std::uint64_t frontBytes_ = 0;
  std::uint64_t backBytes_ = 0;
  std::uint64_t unwrittenBytes_ = 0;
  std::uint64_t staleBytes_ = 0;
  std::int64_t firstUnwritten_ = 0;
  std::size_t handedOut_ = 0;  // of the front
  std::size_t foreign_ = 0;    // in flight, but no longer at the front
  std::size_t reached_ = 0;    // of the front: have been handed out once, so that some may be acknowledged
};

template <typename Function>
bool RecordWindow::ForEachUnwritten(Function function) const {
  for (const auto *part : {&front_, &back_}) {
    auto each = part->end();
    while (each != part->begin() && std::prev(each)->key >= firstUnwritten_) --each;
    for (; each != part->end(); ++each) {
      if (!each->acknowledged && !function(*each)) return false;
    }
  }
  return true;
}

}  // namespace zor::bridge

#endif
