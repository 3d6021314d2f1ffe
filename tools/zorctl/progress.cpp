#include "zorctl/progress.h"

#include <algorithm>

#include "zorctl/output.h"
#include "zorctl/text.h"

namespace zor::ctl {

std::string ProgressBar(size_t done, size_t total, size_t width) {
  constexpr size_t kWidest = 50;
  constexpr size_t kFrame = 2;
  if (total == 0 || width <= kFrame) return {};
  const size_t room = std::min(width, kWidest) - kFrame;
  const size_t filled = std::min(done, total) * room / total;
  return "[" + std::string(filled, '#') + std::string(room - filled, '.') + "]";
}

void Progress::Show(size_t done, size_t total, const std::string &what) {
  constexpr auto kInterval = std::chrono::milliseconds(100);
  const size_t columns = ProgressWidth();
  const auto now = std::chrono::steady_clock::now();
  if (columns == 0 || now < next_) return;
  next_ = now + kInterval;
  shown_ = true;
  const std::string text = std::to_string(done) + (total == 0 ? "" : " of " + std::to_string(total)) + " " + what;
  const size_t used = Width(text) + 1;
  const std::string bar = ProgressBar(done, total, columns - std::min(columns, used));
  ShowProgress(bar.empty() ? text : bar + " " + text);
}

void Progress::Hide() {
  if (shown_) ShowProgress("");
  shown_ = false;
}

}  // namespace zor::ctl
