// The one allocation guard: every message and packet block of the library comes from here.
#ifndef BASE_ALLOC_H
#define BASE_ALLOC_H

#include <cstdint>
#include <utility>

#include "common/malloc_ptr.h"

namespace zor {

// Allocates size bytes. 0 bytes and more than 8 MiB are refused with a line on standard output. Every block is followed
// by 16 zero bytes that no length counts, so that a text sent without its NUL still ends inside the block.
void *GuardedAlloc(std::uint64_t size) noexcept;

// The same with all bytes zero.
void *GuardedCalloc(std::uint64_t size) noexcept;

// A zeroed record of type T, which must be a plain C record.
template <class T>
MallocPtr<T> GuardedNew() noexcept {
  return MallocPtr<T>(static_cast<T *>(GuardedCalloc(sizeof(T))));
}

// Moves the first min(oldSize, newSize) bytes into a new zeroed block of newSize bytes. The old block is consumed in
// every outcome, refusal included; a refused size prints a line of its own.
void *GuardedRegrow(MallocPtr<void> block, std::uint64_t oldSize, std::uint64_t newSize) noexcept;

// The same with nothing zeroed but the bytes behind the block, for a block that is filled at once.
void *GuardedGrow(MallocPtr<void> block, std::uint64_t oldSize, std::uint64_t newSize) noexcept;

template <class T>
MallocPtr<T> GuardedGrow(MallocPtr<T> block, std::uint64_t oldSize, std::uint64_t newSize) noexcept {
  return MallocPtr<T>(static_cast<T *>(GuardedGrow(MallocPtr<void>(block.release()), oldSize, newSize)));
}

template <class T>
MallocPtr<T> GuardedRegrow(MallocPtr<T> block, std::uint64_t oldSize, std::uint64_t newSize) noexcept {
  return MallocPtr<T>(static_cast<T *>(GuardedRegrow(MallocPtr<void>(block.release()), oldSize, newSize)));
}

}  // namespace zor

#endif
