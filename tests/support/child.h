// Child processes of a test: programs, and functions run in a fork. Those still running are killed at the end.
#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace zor::test {

// How long a test waits for what must happen: long enough for a busy machine, since only a failing test waits it out.
constexpr std::chrono::milliseconds kPatience = std::chrono::seconds(60);

// Polls until the condition holds; false when the deadline passes first.
bool WaitUntil(const std::function<bool()> &condition, std::chrono::milliseconds deadline = kPatience);

class Child {
 public:
  // Runs a program with its standard output in a pipe.
  static Child Program(const std::vector<std::string> &arguments);
  // Runs a function in a fork; its result is the exit status.
  static Child Function(const std::function<int()> &body);

  Child(Child &&other) noexcept;
  Child &operator=(Child &&other) = delete;
  ~Child();

  pid_t pid() const { return pid_; }
  // Reads the program's output up to and with the given text; false on end of file or after the deadline.
  bool WaitForOutput(const std::string &text, std::chrono::milliseconds deadline = kPatience);
  // All that was read from the program's output so far.
  const std::string &output() const { return output_; }
  void Signal(int number) const;
  // Waits until it ends: the exit status, 128 + the signal that ended it, or -1 after the deadline.
  int Wait(std::chrono::milliseconds deadline = kPatience);

 private:
  Child(pid_t pid, int fd) : pid_(pid), fd_(fd) {}

  pid_t pid_;
  int fd_;
  std::string output_;
};

}  // namespace zor::test

#endif
