// How far long work is: a bar on a terminal's standard error, nothing elsewhere.
#ifndef ZORCTL_PROGRESS_H
#define ZORCTL_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <string>

namespace zor::ctl {

class Progress {
 public:
  Progress() = default;
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;
  ~Progress() { Hide(); }

  // "[####....] 42 of 97 replies"; without a total the bar is left out. Not oftener than the eye can follow.
  void Show(size_t done, size_t total, const std::string &what);
  // Before output on the terminal.
  void Hide();

 private:
  std::chrono::steady_clock::time_point next_;
  bool shown_ = false;
};

// The bar for a line of that width.
std::string ProgressBar(size_t done, size_t total, size_t width);

}  // namespace zor::ctl

#endif
