#include "programs/messages/nearest.h"

#include <algorithm>

#include "common/ascii.h"
#include "programs/messages/text.h"

namespace zor::messages {
namespace {

constexpr size_t kMaxLength = 64;  // of a word that anyone mistypes
constexpr size_t kLettersForEachMistake = 3;
constexpr size_t kShortestBeginning = 2;

// The number of letters to insert, remove, replace or swap with their neighbour.
size_t Distance(std::string_view from, std::string_view to) {
  using Row = std::vector<size_t>;
  const size_t width = to.size() + 1;
  Row older(width), old(width), row(width);
  for (size_t j = 0; j < width; ++j) old[j] = j;
  for (size_t i = 1; i <= from.size(); ++i) {
    row[0] = i;
    for (size_t j = 1; j < width; ++j) {
      const size_t replaced = old[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
      row[j] = std::min({old[j] + 1, row[j - 1] + 1, replaced});
      const bool swapped = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (swapped) row[j] = std::min(row[j], older[j - 2] + 1);
    }
    older.swap(old);
    old.swap(row);
  }
  return old.back();
}

std::string Upper(std::string_view text) {
  std::string upper(text.substr(0, kMaxLength));
  std::transform(upper.begin(), upper.end(), upper.begin(), AsciiUpper);
  return upper;
}

}  // namespace

std::string Nearest(std::string_view word, const std::vector<std::string> &candidates) {
  const std::string wanted = Upper(word);
  size_t least = std::max<size_t>(1, wanted.size() / kLettersForEachMistake) + 1, longer = 0;
  std::string nearest, only;
  for (const std::string &each : candidates) {
    const std::string upper = Upper(each);
    if (const size_t distance = Distance(wanted, upper); distance < least && distance < upper.size()) {
      least = distance;
      nearest = each;
    }
    if (wanted.size() < kShortestBeginning || !upper.starts_with(wanted)) continue;
    only = each;
    ++longer;
  }
  return longer == 1 ? only : nearest;
}

std::string DidYouMean(std::string_view word, const std::vector<std::string> &candidates) {
  const std::string nearest = Nearest(word, candidates);
  return nearest.empty() ? "" : "did you mean " + Escape(nearest) + "? ";
}

}  // namespace zor::messages
