#include "programs/journal/slot.h"

#include <algorithm>
#include <cstring>

namespace zor::daemon {
namespace {

using journal::Blocks;
using journal::Chain;
using journal::kNone;
using journal::Linked;

// Bytes used in the last block.
uint32_t EndOf(const Blocks &blocks, const Chain &chain) {
  if (chain.bytes == 0) return blocks.payload();
  return static_cast<uint32_t>((chain.bytes - 1) % blocks.payload()) + 1;
}

bool Append(Blocks &blocks, Chain &chain, std::span<const std::byte> bytes) {
  if (bytes.empty()) return true;
  const uint32_t end = EndOf(blocks, chain);
  const size_t room = blocks.payload() - end;
  const size_t more = bytes.size() <= room ? 0 : (bytes.size() - room + blocks.payload() - 1) / blocks.payload();
  const Linked added = journal::AllocateLinked(blocks, more, false);
  if (more > 0 && added.first == kNone) return false;
  uint32_t block = chain.last;
  size_t offset = end;
  chain.bytes += bytes.size();
  if (chain.first == kNone) {
    chain.first = block = added.first;
    offset = 0;
  } else if (more > 0) {
    blocks.HeadOf(chain.last).next = added.first;
  }
  if (more > 0) chain.last = added.last;
  while (!bytes.empty()) {
    if (offset == blocks.payload()) {
      block = blocks.HeadOf(block).next;
      offset = 0;
    }
    const size_t part = std::min(bytes.size(), blocks.payload() - offset);
    std::memcpy(blocks.PayloadOf(block) + offset, bytes.data(), part);
    bytes = bytes.subspan(part);
    offset += part;
  }
  return true;
}

void Clear(Blocks &blocks, Chain &chain) {
  if (chain.first != kNone) journal::ReleaseLinked(blocks, chain.first, chain.last);
  chain = {};
}

size_t BlocksIn(const Blocks &blocks, uint64_t bytes) {
  return static_cast<size_t>((bytes + blocks.payload() - 1) / blocks.payload());
}

}  // namespace

namespace journal {

Linked AllocateLinked(Blocks &blocks, size_t count, bool urgent) {
  Linked linked;
  for (; count > 0; --count) {
    const uint32_t block = blocks.Allocate(urgent);
    if (block == kNone) {
      if (linked.first != kNone) ReleaseLinked(blocks, linked.first, linked.last);
      return {};
    }
    if (linked.first == kNone) {
      linked.first = block;
    } else {
      blocks.HeadOf(linked.last).next = block;
    }
    linked.last = block;
  }
  return linked;
}

void ReleaseLinked(Blocks &blocks, uint32_t first, uint32_t last) {
  for (uint32_t block = first; block != last; block = blocks.HeadOf(block).next) blocks.Release(block);
  blocks.Release(last);
}

}  // namespace journal

JournalSlot::JournalSlot(Journal &journal, uint64_t owner) : journal_(journal), index_(journal.ClaimSlot()) {
  if (!valid()) return;
  journal::SlotState &state = edit();
  const uint64_t stamp = state.stamp;
  state = {};
  state.stamp = stamp;
  state.owner = owner;
  NoteUnread(0);
}

JournalSlot::~JournalSlot() {
  if (!valid()) return;
  journal::SlotState &state = edit();
  Clear(journal_.smallBlocks(), state.record);
  Clear(journal_.largeBlocks(), state.input);
  if (state.output.first != kNone) {
    journal::ReleaseLinked(journal_.largeBlocks(), state.output.first, state.output.last);
  }
  state.output = {};
  state.owner = 0;
  journal_.ReleaseSlot(index_);
}

bool JournalSlot::SetRecord(std::span<const std::byte> record) {
  Chain chain{};
  Blocks &blocks = journal_.smallBlocks();
  if (!Append(blocks, chain, record)) return false;
  Chain &old = edit().record;
  Clear(blocks, old);
  old = chain;
  return true;
}

bool JournalSlot::AppendInput(std::span<const std::byte> bytes) {
  return bytes.empty() || Append(journal_.largeBlocks(), edit().input, bytes);
}

void JournalSlot::ClearInput() {
  if (state().input.first != kNone) Clear(journal_.largeBlocks(), edit().input);
}

void JournalSlot::CopyInput(std::span<std::byte> to) const {
  const Blocks &blocks = journal_.largeBlocks();
  const Chain &input = state().input;
  size_t left = inputBytes();
  for (uint32_t block = input.first; left > 0; block = blocks.HeadOf(block).next) {
    const size_t part = std::min<size_t>(left, blocks.payload());
    std::memcpy(to.data() + inputBytes() - left, blocks.PayloadOf(block), part);
    left -= part;
  }
}

size_t JournalSlot::memory() const {
  const journal::SlotState &held = state();
  const Blocks &large = journal_.largeBlocks();
  const uint64_t output = held.output.first == kNone ? 0 : held.output.front + held.output.cost;
  return BlocksIn(journal_.smallBlocks(), held.record.bytes) * journal::kSmallBlock +
         (BlocksIn(large, held.input.bytes) + BlocksIn(large, output)) * journal::kLargeBlock;
}

}  // namespace zor::daemon
