#include "zorctl/screen_line.h"

#include <algorithm>
#include <utility>

#include "zorctl/text.h"

namespace zor::ctl {

Line CutLine(const Line &line, size_t columns) {
  Line cut;
  for (const Span &span : line) {
    if (columns == 0) break;
    cut.push_back({Cut(span.text, columns), span.style});
    columns -= std::min(columns, Width(cut.back().text));
  }
  return cut;
}

std::string TextOfLine(const Line &line) {
  std::string text;
  for (const Span &span : line) text += span.text;
  return text;
}

std::string JoinFitting(const std::vector<std::string> &texts, std::string_view separator, size_t columns) {
  std::string joined;
  for (const std::string &text : texts) {
    std::string longer = joined;
    if (!joined.empty()) longer.append(separator);
    longer.append(text);
    if (!joined.empty() && Width(longer) > columns) break;
    joined = std::move(longer);
  }
  return joined;
}

}  // namespace zor::ctl
