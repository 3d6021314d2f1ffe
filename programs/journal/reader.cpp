#include "programs/journal/reader.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "programs/journal/names.h"

namespace zor::daemon {
namespace {

using journal::Head;
using journal::kNone;
using journal::Regions;
using journal::SlotState;

class Mapping {
 public:
  explicit Mapping(int fd) {
    struct stat status = {};
    if (::fstat(fd, &status) != 0 || status.st_size <= 0) return;
    const auto size = journal::SizeWithin(static_cast<uint64_t>(status.st_size), journal::kMostMapped);
    errno = ENOMEM;
    if (!size) return;
    void *mapped = ::mmap(nullptr, *size, PROT_READ, MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED) return;
    start_ = static_cast<const std::byte *>(mapped);
    size_ = *size;
  }
  Mapping(const Mapping &) = delete;
  Mapping &operator=(const Mapping &) = delete;
  ~Mapping() {
    if (start_ != nullptr) ::munmap(const_cast<std::byte *>(start_), size_);
  }

  std::span<const std::byte> bytes() const { return {start_, size_}; }

 private:
  const std::byte *start_ = nullptr;
  size_t size_ = 0;
};

template <typename Record>
Record At(std::span<const std::byte> bytes, size_t offset) {
  Record record;
  std::memcpy(&record, bytes.data() + offset, sizeof record);
  return record;
}

// So many bytes from an offset on; none if they are not all there.
std::span<const std::byte> Part(std::span<const std::byte> bytes, uint64_t offset, uint64_t size) {
  const auto begin = journal::SizeWithin(offset, bytes.size());
  const auto length = begin ? journal::SizeWithin(size, bytes.size() - *begin) : std::nullopt;
  return length ? bytes.subspan(*begin, *length) : std::span<const std::byte>();
}

// The blocks of one size. A block that is met twice belongs to two chains or to a circle.
class BlockReader {
 public:
  BlockReader(std::span<const std::byte> region, uint32_t blockBytes)
      : region_(region), blockBytes_(blockBytes), met_(region.size() / blockBytes) {}

  // The bytes of a block; empty if it is not one, or was met before.
  std::span<const std::byte> Take(uint32_t index) {
    if (index == kNone || index > met_.size() || met_[index - 1]) return {};
    met_[index - 1] = true;
    return region_.subspan(size_t{index - 1} * blockBytes_, blockBytes_).subspan(sizeof(journal::BlockHead));
  }
  uint32_t Next(uint32_t index) const { return At<journal::BlockHead>(region_, size_t{index - 1} * blockBytes_).next; }
  size_t payload() const { return blockBytes_ - sizeof(journal::BlockHead); }
  size_t capacity() const { return payload() * met_.size(); }

  // So many bytes of a chain, from an offset in its first block on. Nothing if the chain is not that long.
  std::optional<std::vector<std::byte>> Gather(uint32_t block, size_t offset, uint64_t size) {
    const auto length = journal::SizeWithin(size, capacity());
    if (offset > payload() || !length) return std::nullopt;
    std::vector<std::byte> gathered;
    gathered.reserve(*length);
    for (; gathered.size() < *length; block = Next(block), offset = 0) {
      const auto bytes = Take(block);
      if (bytes.empty()) return std::nullopt;
      const auto part = bytes.subspan(offset, std::min(*length - gathered.size(), payload() - offset));
      gathered.insert(gathered.end(), part.begin(), part.end());
    }
    return gathered;
  }

 private:
  std::span<const std::byte> region_;
  uint32_t blockBytes_;
  std::vector<bool> met_;
};

class Reader {
 public:
  Reader(std::span<const std::byte> file, std::string_view program) : file_(file), tag_(journal::ProgramTag(program)) {}

  std::optional<JournalContent> Read(std::string &problem) {
    if (const char *wrong = CheckHead(); wrong != nullptr) {
      problem = wrong;
      return std::nullopt;
    }
    JournalContent content{};
    if (ReadSlots(content) && ReadTurn(content)) return content;
    problem = "it is damaged";
    return std::nullopt;
  }

 private:
  const char *CheckHead();
  bool ReadSlots(JournalContent &content) const;
  bool ReadTurn(JournalContent &content) const;
  bool ReadBuffer(JournalTurn &turn) const;
  static bool ReadOutput(const journal::Queue &queue, BlockReader &blocks, JournalClient &client);
  static bool ReadMessages(std::span<const std::byte> bytes, const journal::Queue &queue, JournalClient &client);

  std::span<const std::byte> file_;
  uint64_t tag_;
  Head head_{};
  Regions regions_{};
};

const char *Reader::CheckHead() {
  if (file_.size() < sizeof head_) return "it is no journal";
  head_ = At<Head>(file_, 0);
  if (head_.magic != journal::kMagic || head_.program != tag_) return "it is no journal of this server";
  if (head_.layout != journal::kLayout || head_.headBytes != sizeof head_) return "its layout is another version's";
  if (head_.complete == 0) return "it is incomplete";
  regions_ = journal::RegionsOf(head_.geometry);
  return regions_.end <= file_.size() && head_.slotsUsed <= head_.geometry.slots ? nullptr : "it is damaged";
}

bool Reader::ReadSlots(JournalContent &content) const {
  const auto slots = Part(file_, regions_.slots, regions_.smallBlocks - regions_.slots);
  BlockReader small(Part(file_, regions_.smallBlocks, regions_.largeBlocks - regions_.smallBlocks),
                    journal::kSmallBlock);
  BlockReader large(Part(file_, regions_.largeBlocks, regions_.end - regions_.largeBlocks), journal::kLargeBlock);
  for (uint32_t index = 1; index <= head_.slotsUsed; ++index) {
    const auto slot = At<journal::Slot>(slots, size_t{index - 1} * journal::kSlotBytes);
    const SlotState *state = journal::ValidOf(slot.versions, head_.stamp);
    if (state == nullptr || state->owner == 0) continue;
    auto record = small.Gather(state->record.first, 0, state->record.bytes);
    auto input = large.Gather(state->input.first, 0, state->input.bytes);
    if (!record || !input) return false;
    content.clients.push_back(
        {index, state->owner, std::move(*record), std::move(*input), {}, state->notes, slot.unread});
    if (!ReadOutput(state->output, large, content.clients.back())) return false;
  }
  return true;
}

bool Reader::ReadOutput(const journal::Queue &queue, BlockReader &blocks, JournalClient &client) {
  if (queue.messages == 0) return true;
  if (queue.cost > blocks.capacity()) return false;
  const auto bytes = blocks.Gather(queue.first, queue.front, queue.cost);
  return bytes && ReadMessages(*bytes, queue, client);
}

bool Reader::ReadMessages(std::span<const std::byte> bytes, const journal::Queue &queue, JournalClient &client) {
  for (uint32_t sent = queue.sent; !bytes.empty(); sent = 0) {
    if (bytes.size() < sizeof(journal::MessageHead)) return false;
    const auto head = At<journal::MessageHead>(bytes, 0);
    const uint64_t padded = (uint64_t{head.size} + sizeof head - 1) / sizeof head * sizeof head;
    if (padded > bytes.size() - sizeof head || sent > head.size) return false;
    const auto message = Part(bytes, sizeof head, head.size);
    client.output.push_back({{message.begin(), message.end()}, sent, head.hasDescriptor != 0 && sent == 0});
    bytes = Part(bytes, sizeof head + padded, bytes.size() - sizeof head - padded);
  }
  return client.output.size() == queue.messages;
}

bool Reader::ReadTurn(JournalContent &content) const {
  JournalTurn &turn = content.turn;
  const journal::Turn *state = journal::ValidOf(head_.turns, head_.stamp);
  if (state != nullptr) turn.state = *state;
  const auto isSlot = [&](uint32_t slot) { return slot == kNone || content.InSlot(slot) != nullptr; };
  if (!isSlot(turn.state.reader) || !isSlot(turn.state.writeTo) || !isSlot(turn.state.flushing)) return false;
  if (turn.state.writeTo != kNone && turn.state.reader == kNone) return false;
  turn.frameAt = head_.frameAt;
  turn.crashed = head_.crashed != 0;
  if (turn.state.reader != kNone && !ReadBuffer(turn)) return false;
  turn.written = turn.state.flushing != kNone || turn.state.writeTo != kNone ? head_.write.msg_len : 0;
  const JournalClient *flushed = content.InSlot(turn.state.flushing);
  uint64_t most = turn.state.writeTo == kNone ? 0 : turn.state.writeEnd - turn.state.routed;
  if (flushed != nullptr) {
    most = 0;
    for (const JournalMessage &message : flushed->output) most += message.bytes.size() - message.sent;
  }
  return turn.written <= most;
}

bool Reader::ReadBuffer(JournalTurn &turn) const {
  const journal::Turn &state = turn.state;
  const uint64_t used = uint64_t{state.kept} + head_.read.msg_len;
  if (used > head_.geometry.bufferBytes || state.routed > used) return false;
  if (state.writeTo != kNone && (state.writeEnd < state.routed || state.writeEnd > used)) return false;
  const auto bytes = Part(file_, regions_.buffer, used);
  turn.buffer.assign(bytes.begin(), bytes.end());
  turn.readDescriptor = head_.read.msg_len > 0 && head_.read.msg_hdr.msg_controllen > 0;
  return true;
}

}  // namespace

JournalClient *JournalContent::InSlot(uint32_t slot) {
  const auto found = std::find_if(clients.begin(), clients.end(), [&](const auto &c) { return c.slot == slot; });
  return slot == kNone || found == clients.end() ? nullptr : &*found;
}

std::optional<JournalContent> ReadJournal(int fd, std::string_view program, std::string &problem) {
  const Mapping mapping(fd);
  if (mapping.bytes().empty()) {
    problem = std::strerror(errno);
    return std::nullopt;
  }
  return Reader(mapping.bytes(), program).Read(problem);
}

}  // namespace zor::daemon
