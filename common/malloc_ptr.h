// Owns a malloc block. Blocks that cross an exported interface are malloc blocks, because callers free them.
#ifndef COMMON_MALLOC_PTR_H
#define COMMON_MALLOC_PTR_H

#include <cstdlib>
#include <memory>

namespace zor {

struct FreeDeleter {
  void operator()(void *block) const noexcept { std::free(block); }
};

template <class T>
using MallocPtr = std::unique_ptr<T, FreeDeleter>;

}  // namespace zor

#endif
