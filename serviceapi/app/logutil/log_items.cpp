// The item table: rows and two parallel tables of texts, generated from log_items.tsv. Callers receive the rows
// and may walk them up to the row of zeros, so a row holds nothing but what a caller may see. The compiler checks the
// table as a whole.
#include "app/logutil/log_items.h"

#include <zor/log.h>

#include <algorithm>
#include <iterator>
#include <span>
#include <string_view>

namespace zor {
namespace {

#include "app/logutil/log_item_table.inc"

constexpr std::size_t kItemCount = 304;
constexpr std::span kRows(kItems, kItemCount);

static_assert(sizeof(ZOR_LOG_ITEM) == 12);
static_assert(std::size(kItems) == kItemCount + 1);
static_assert(std::size(kEnglishTexts) == kItemCount && std::size(kSecondTexts) == kItemCount);
static_assert(kItems[kItemCount].index == 0 && kItems[kItemCount].typeLevel == 0 && kItems[kItemCount].enabled == 0);

// The position of an item; kItemCount when it is unknown.
constexpr std::size_t Locate(std::uint32_t index) {
  std::size_t at = 0;
  while (at < kItemCount && kItems[at].index != index) ++at;
  return at;
}

// Which of $0 to $9 a text contains, as bits.
constexpr unsigned ParametersOf(std::string_view text) {
  unsigned found = 0;
  for (std::size_t at = text.find('$'); at != text.npos; at = text.find('$', at + 1)) {
    found |= 1u << (text.at(at + 1) - '0');
  }
  return found;
}

// One item occurs twice. Its texts agree, so it does not matter which one is found.
constexpr bool OnlyTheKnownIndexOccursTwice() {
  constexpr std::uint32_t kTwice = 0x0300000B;
  std::size_t again = 0;
  for (std::size_t i = 0; i < kItemCount; ++i) {
    const std::size_t first = Locate(kItems[i].index);
    if (first == i) continue;
    if (kItems[i].index != kTwice || kItems[i].typeLevel != kItems[first].typeLevel) return false;
    if (std::string_view(kEnglishTexts[i]) != kEnglishTexts[first]) return false;
    if (std::string_view(kSecondTexts[i]) != kSecondTexts[first]) return false;
    ++again;
  }
  return again == 1;
}

constexpr bool BothTextsTakeTheSameParameters() {
  return std::ranges::equal(kEnglishTexts, kSecondTexts, {}, ParametersOf, ParametersOf);
}

constexpr bool IsSynchronous(const ZOR_LOG_ITEM &item) {
  return (item.index & ZOR_LOG_SYNC_FLAG) != 0;
}

constexpr std::uint32_t LevelsOf(std::span<const ZOR_LOG_ITEM> rows) {
  std::uint32_t levels = 0;
  for (const ZOR_LOG_ITEM &row : rows) levels |= row.typeLevel & ZOR_LOG_LEVEL_MASK;
  return levels;
}

static_assert(OnlyTheKnownIndexOccursTwice());
static_assert(BothTextsTakeTheSameParameters());
static_assert(std::ranges::count_if(kRows, IsSynchronous) == 15);

}  // namespace

std::uint32_t LogLevelsInUse() noexcept {
  return LevelsOf(kItems);
}

}  // namespace zor

const ZOR_LOG_ITEM *ZOR_UTIL_LogItemFindByIdx(uint32_t index) {
  const std::size_t at = zor::Locate(index);
  return at == zor::kItemCount ? nullptr : &zor::kItems[at];
}

// By index and not by position: the row may be a copy.
const char *ZOR_UTIL_LogItemGetFmtStr(const ZOR_LOG_ITEM *item, uint32_t language) {
  if (item == nullptr) return nullptr;
  const std::size_t at = zor::Locate(item->index);
  if (at == zor::kItemCount) return nullptr;
  return language == ZOR_LOG_SECOND_LANGUAGE ? zor::kSecondTexts[at] : zor::kEnglishTexts[at];
}
