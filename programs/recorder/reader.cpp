#include "programs/recorder/reader.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zor/control_wire.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zor::recorder {
namespace {

constexpr uint64_t kMostNumber = uint64_t{1} << 62;  // no server gets there, and its successor can go on counting

uint32_t BodyLengthOf(const Slot &slot) {
  ZOR_MSG_HEAD head;
  std::memcpy(&head, slot.frame.data(), sizeof head);
  return head.bodyLength;
}

bool IsSound(const Slot &slot) {
  return slot.number != 0 && slot.number <= kMostNumber && slot.bytes >= ZOR_MSG_HEAD_SIZE &&
         slot.bytes <= slot.frame.size() && slot.receiver.back() == '\0' && slot.outcome <= ZOR_CONTROL_UNDELIVERED &&
         slot.bytes - ZOR_MSG_HEAD_SIZE <= BodyLengthOf(slot);
}

}  // namespace

std::optional<Recording> ReadRecording(std::span<const std::byte> bytes, std::string &problem) {
  Head head{};
  std::ranges::copy(bytes.first(std::min(bytes.size(), sizeof head)),
                    std::as_writable_bytes(std::span(&head, 1)).begin());
  if (bytes.size() >= sizeof head && head.magic == __builtin_bswap64(kMagic)) {
    problem = "it was recorded on a machine of the other byte order";
  } else if (bytes.size() < sizeof head || head.magic != kMagic) {
    problem = "it is not a recording";
  } else if (head.layout != kLayout || head.slotBytes != sizeof(Slot)) {
    problem = "it was recorded by another version";
  } else if (bytes.size() > kMostBytes) {
    problem = "it is too long";
  }
  if (!problem.empty()) return std::nullopt;
  Recording recording;
  recording.clockOffsetUs = head.clockOffsetUs;
  for (bytes = bytes.subspan(sizeof head); bytes.size() >= sizeof(Slot); bytes = bytes.subspan(sizeof(Slot))) {
    Slot slot;
    std::memcpy(&slot, bytes.data(), sizeof slot);
    if (IsSound(slot)) {
      recording.slots.push_back(slot);
    } else if (slot.number != 0) {
      ++recording.damaged;
    }
  }
  if (!bytes.empty()) ++recording.damaged;
  std::ranges::stable_sort(recording.slots, {}, &Slot::number);
  const auto isSame = [](const Slot &one, const Slot &other) { return one.number == other.number; };
  const auto doubles = std::unique(recording.slots.begin(), recording.slots.end(), isSame);
  recording.damaged += static_cast<size_t>(recording.slots.end() - doubles);
  recording.slots.erase(doubles, recording.slots.end());
  return recording;
}

std::optional<Recording> ReadRecording(int fd, std::string &problem) {
  struct stat status {};
  const bool known = ::fstat(fd, &status) == 0;
  std::vector<std::byte> bytes(known ? static_cast<size_t>(std::clamp<off_t>(status.st_size, 0, kMostBytes)) : 0);
  size_t length = 0;
  while (length < bytes.size()) {
    const ssize_t count = ::pread(fd, bytes.data() + length, bytes.size() - length, static_cast<off_t>(length));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    length += static_cast<size_t>(count);
  }
  return ReadRecording(std::span(bytes).first(length), problem);
}

std::string CopyOf(const Slot &slot, uint64_t clockOffsetUs, uint32_t missed) {
  ZOR_CONTROL_COPY copy{};
  copy.timeUs = slot.timeUs + clockOffsetUs;
  copy.missed = missed;
  copy.outcome = slot.outcome;
  const uint64_t size = ZOR_MSG_HEAD_SIZE + uint64_t{BodyLengthOf(slot)};
  copy.frameSize = static_cast<uint32_t>(std::min<uint64_t>(size, UINT32_MAX));
  std::memcpy(copy.receiver, slot.receiver.data(), sizeof copy.receiver);
  std::string bytes(reinterpret_cast<const char *>(&copy), sizeof copy);
  return bytes.append(reinterpret_cast<const char *>(slot.frame.data()), slot.bytes);
}

}  // namespace zor::recorder
