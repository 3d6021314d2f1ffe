#include "support/temp_root.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace zor::test {

TempRoot::TempRoot() {
  char name[] = "/tmp/zor.XXXXXX";
  if (::mkdtemp(name) == nullptr) {
    std::perror("mkdtemp");
    std::abort();
  }
  root_ = name;
  for (const char *directory : {"/var/run/msg", "/var/run/notify", "/var/mlog"}) {
    std::filesystem::create_directories(Path(directory));
  }
  ::setenv("ZOR_ROOT", name, 1);
}

TempRoot::~TempRoot() {
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

std::string ContentOf(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace zor::test
