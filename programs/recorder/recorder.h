// The flight recorder: the latest frames of a server, in memory that has a descriptor, so that the service manager can
// keep it for the next server when this one crashes. A frame costs one copy into the next slot of a ring. The process
// is killed between two stores, never within what another process could see of them, so a slot is valid when its number
// is stored, which is last.
//
// Memory is asked for before it is used, because a page that cannot be had would end the process, and only as far as
// frames are recorded. Without more memory the ring is as short as it is.
#ifndef PROGRAMS_RECORDER_RECORDER_H
#define PROGRAMS_RECORDER_RECORDER_H

#include <algorithm>
#include <atomic>
#include <cstring>
#include <span>
#include <string>

#include "common/unique_fd.h"
#include "programs/recorder/layout.h"
#include "programs/recorder/reader.h"

namespace zor::recorder {

class Recorder {
 public:
  // One that is off.
  Recorder() = default;
  Recorder(const Recorder &) = delete;
  Recorder &operator=(const Recorder &) = delete;
  ~Recorder();

  // Records that many frames from now on, after those of a predecessor. False, with errno and the recorder off, if the
  // system gave no memory.
  bool Start(size_t slots, const Recording &predecessor);

  bool on() const { return slots_ != nullptr; }
  int fd() const { return fd_.get(); }
  // Sets what turns times of the steady clock into those since 1970. A clock that is set later moves earlier frames
  // too.
  void SetClockOffset(uint64_t offsetUs) {
    if (on()) head_->clockOffsetUs = offsetUs;
  }

  // The frame is complete.
  void Add(std::span<const std::byte> frame, const std::array<char, ZOR_MSG_NAME_SIZE> &receiver, uint32_t outcome,
           uint64_t timeUs) {
    Slot *slot = Next();
    if (slot == nullptr) return;
    slot->timeUs = timeUs;
    slot->receiver = receiver;
    slot->outcome = static_cast<uint16_t>(outcome);
    slot->bytes = static_cast<uint16_t>(std::min(frame.size(), slot->frame.size()));
    std::memcpy(slot->frame.data(), frame.data(), slot->bytes);
    KeepOrder();
    slot->number = ++number_;
  }

  // The recording, oldest frame first; a head alone when it is off. Throws std::bad_alloc.
  std::string Content() const;

 private:
  // Null if it is off, or has no memory at all.
  Slot *Next() {
    if (next_ == backed_ && !MakeRoom()) return nullptr;
    Slot *slot = slots_ + next_++;
    slot->number = 0;
    KeepOrder();
    return slot;
  }
  bool MakeRoom();
  static void KeepOrder() { std::atomic_signal_fence(std::memory_order_seq_cst); }

  UniqueFd fd_;
  Head *head_ = nullptr;
  Slot *slots_ = nullptr;
  size_t count_ = 0;
  size_t backed_ = 0;  // slots that have memory
  size_t next_ = 0;
  uint64_t number_ = 0;  // of the latest frame
};

}  // namespace zor::recorder

#endif
