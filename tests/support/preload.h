// Programs that start while the object exists load a library before all others.
#ifndef TESTS_SUPPORT_PRELOAD_H
#define TESTS_SUPPORT_PRELOAD_H

#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/temp_root.h"

namespace zor::test {

class Preload {
 public:
  // LD_PRELOAD separates its names by blanks, so it gets a link that has none.
  Preload(const TempRoot &root, const char *library) {
    const std::string link = root.Path("/preload.so");
    std::filesystem::create_symlink(library, link);
    ::setenv("LD_PRELOAD", link.c_str(), 1);
  }
  ~Preload() { ::unsetenv("LD_PRELOAD"); }
  Preload(const Preload &) = delete;
  Preload &operator=(const Preload &) = delete;
};

}  // namespace zor::test

#endif
