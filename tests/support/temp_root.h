// A private system: a temporary directory that holds every fixed path of this process and its children.
#ifndef TESTS_SUPPORT_TEMP_ROOT_H
#define TESTS_SUPPORT_TEMP_ROOT_H

#include <string>

namespace zor::test {

class TempRoot {
 public:
  // Creates the directory with the fixed directories in it and points ZOR_ROOT at it.
  TempRoot();
  ~TempRoot();
  TempRoot(const TempRoot &) = delete;
  TempRoot &operator=(const TempRoot &) = delete;

  // The real path of a fixed path such as "/var/msgsvr".
  std::string Path(const std::string &fixed) const { return root_ + fixed; }

 private:
  std::string root_;
};

// All bytes of a file.
std::string ContentOf(const std::string &path);

}  // namespace zor::test

#endif
