// Owns a stdio stream.
#ifndef BASE_FILE_PTR_H
#define BASE_FILE_PTR_H

#include <cstdio>
#include <memory>

namespace zor {

struct FileCloser {
  void operator()(std::FILE *stream) const noexcept { std::fclose(stream); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace zor

#endif
