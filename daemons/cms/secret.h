// Memory for what nobody else may see: cleared before it is given back, also when it grows.
#ifndef CMS_SECRET_H
#define CMS_SECRET_H

#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

namespace zor::cms {

template <class T>
struct ClearingAllocator : std::allocator<T> {
  void deallocate(T *block, size_t count) {
    ::explicit_bzero(block, count * sizeof *block);
    std::allocator<T>::deallocate(block, count);
  }
};

using Secret = std::vector<std::byte, ClearingAllocator<std::byte>>;

}  // namespace zor::cms

#endif
