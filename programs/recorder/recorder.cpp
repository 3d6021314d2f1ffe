#include "programs/recorder/recorder.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace zor::recorder {
namespace {

constexpr size_t kStep = 16384;  // of memory

size_t BytesOf(size_t slots) {
  return sizeof(Head) + slots * sizeof(Slot);
}

Head NewHead() {
  Head head{};
  head.magic = kMagic;
  head.layout = kLayout;
  head.slotBytes = sizeof(Slot);
  return head;
}

}  // namespace

Recorder::~Recorder() {
  if (on()) ::munmap(head_, BytesOf(count_));
}

bool Recorder::Start(size_t slots, const Recording &predecessor) {
  const size_t bytes = BytesOf(slots);
  UniqueFd fd(::memfd_create("recorder", MFD_CLOEXEC));
  if (!fd.valid() || ::ftruncate(fd.get(), static_cast<off_t>(bytes)) != 0 ||
      ::fallocate(fd.get(), 0, 0, sizeof(Head)) != 0) {
    return false;
  }
  void *mapped = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, fd.get(), 0);
  if (mapped == MAP_FAILED) return false;
  fd_ = std::move(fd);
  head_ = static_cast<Head *>(mapped);
  *head_ = NewHead();
  head_->clockOffsetUs = predecessor.clockOffsetUs;
  slots_ = reinterpret_cast<Slot *>(head_ + 1);
  count_ = slots;
  const auto &former = predecessor.slots;
  for (const Slot &each : std::span(former).last(std::min(former.size(), slots))) {
    Slot *slot = Next();
    if (slot == nullptr) break;
    *slot = each;
    number_ = each.number;
  }
  return true;
}

// At the end of what has memory: more of it, or the start again.
bool Recorder::MakeRoom() {
  if (backed_ < count_) {
    // Enough for one slot more, wherever the step before ended within one.
    const size_t from = BytesOf(backed_);
    const size_t to = std::min(BytesOf(count_), (BytesOf(backed_ + 1) + kStep - 1) / kStep * kStep);
    if (::fallocate(fd_.get(), 0, static_cast<off_t>(from), static_cast<off_t>(to - from)) == 0) {
      backed_ = std::min(count_, (to - sizeof(Head)) / sizeof(Slot));
      return true;
    }
  }
  next_ = 0;
  return backed_ > 0;
}

std::string Recorder::Content() const {
  const Head head = on() ? *head_ : NewHead();
  std::string content(reinterpret_cast<const char *>(&head), sizeof head);
  if (!on()) return content;
  content.reserve(BytesOf(backed_));
  const auto append = [&](size_t first, size_t last) {
    for (const Slot *slot = slots_ + first; slot != slots_ + last; ++slot) {
      if (slot->number != 0) content.append(reinterpret_cast<const char *>(slot), sizeof *slot);
    }
  };
  append(next_, backed_);
  append(0, next_);
  return content;
}

}  // namespace zor::recorder
