#include "base/alloc.h"

#include <zor/msg_wire.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace zor {
namespace {

constexpr std::size_t kSlack = 16;

// The texts say 4M while the bound is 8 MiB: field logs are searched for exactly these lines.
constexpr char kAllocRefused[] = "error: not host tool, but malloc 4M, return NULL, malloc len=%d\n";
constexpr char kRegrowRefused[] = "error: zor_realloc want to malloc 4M, return NULL, malloc len=%d\n";

template <std::size_t N>
bool Refuse(std::uint64_t size, const char (&line)[N]) {
  if (size != 0 && size <= ZOR_ALLOC_MAX) return false;
  std::printf(line, static_cast<int>(static_cast<std::uint32_t>(size)));
  return true;
}

// Either block may be null.
void *CopyInto(void *grown, const void *block, std::uint64_t length) {
  if (grown != nullptr && block != nullptr) std::memcpy(grown, block, static_cast<std::size_t>(length));
  return grown;
}

}  // namespace

void *GuardedAlloc(std::uint64_t size) noexcept {
  if (Refuse(size, kAllocRefused)) return nullptr;
  const auto length = static_cast<std::size_t>(size);
  auto *block = static_cast<char *>(std::malloc(length + kSlack));
  if (block != nullptr) std::memset(block + length, 0, kSlack);
  return block;
}

void *GuardedCalloc(std::uint64_t size) noexcept {
  if (Refuse(size, kAllocRefused)) return nullptr;
  return std::calloc(1, static_cast<std::size_t>(size) + kSlack);
}

void *GuardedRegrow(MallocPtr<void> block, std::uint64_t oldSize, std::uint64_t newSize) noexcept {
  if (Refuse(newSize, kRegrowRefused)) return nullptr;
  return CopyInto(GuardedCalloc(newSize), block.get(), std::min(oldSize, newSize));
}

void *GuardedGrow(MallocPtr<void> block, std::uint64_t oldSize, std::uint64_t newSize) noexcept {
  if (Refuse(newSize, kRegrowRefused)) return nullptr;
  return CopyInto(GuardedAlloc(newSize), block.get(), std::min(oldSize, newSize));
}

}  // namespace zor
