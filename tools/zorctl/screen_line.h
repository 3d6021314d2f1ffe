// A screen as lines of styled text, so that what is drawn can be tested without a terminal.
#ifndef ZORCTL_SCREEN_LINE_H
#define ZORCTL_SCREEN_LINE_H

#include <cstddef>
#include <string>
#include <vector>

namespace zor::ctl {

enum class Style { kPlain, kBold, kDim, kTitle, kSelected, kWarning, kAlarm };

struct Span {
  std::string text;  // without control characters
  Style style = Style::kPlain;
};

using Line = std::vector<Span>;
using Screen = std::vector<Line>;

struct Size {
  size_t rows = 0;
  size_t columns = 0;
};

// The line, truncated to that many columns.
Line CutLine(const Line &line, size_t columns);

// The texts alone.
std::string TextOfLine(const Line &line);

// As many of the texts, from the first on, as fit into that many columns, with the separator between them.
std::string JoinFitting(const std::vector<std::string> &texts, std::string_view separator, size_t columns);

}  // namespace zor::ctl

#endif
