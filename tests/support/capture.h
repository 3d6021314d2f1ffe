// Collects what is written to standard output or standard error, by this process or its children, through any means.
#ifndef TESTS_SUPPORT_CAPTURE_H
#define TESTS_SUPPORT_CAPTURE_H

#include <string>

namespace zor::test {

class Capture {
 public:
  explicit Capture(int fd = 1);
  ~Capture();
  Capture(const Capture &) = delete;
  Capture &operator=(const Capture &) = delete;

  // All that has been written so far.
  std::string Text();

 private:
  int fd_;
  int saved_;
  int file_;
};

}  // namespace zor::test

#endif
