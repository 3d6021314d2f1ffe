/*
 * Module settings.
 *
 * Every daemon calls trace many times in each turn of its loop and prints next to nothing, so the cost of rejecting a
 * line is what matters. Entries are kept in a list, which is what is displayed, and are also chained in buckets by
 * name. A line above the highest setting is rejected before its name is read. The chains are rebuilt at each change of
 * a setting and only read in between: the notification client traces from other threads.
 */
#include "trace/levels.h"

#include <zor/status.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "base/alloc.h"
#include "base/list.h"
#include "base/text.h"

namespace zor {
namespace {

constexpr char kAll[] = "all";
constexpr std::size_t kBucketCount = 64;

struct Filter {
  TraceEntry *entries;
  std::array<TraceEntry *, kBucketCount> buckets;
  const TraceEntry *all;
  std::uint32_t highestLevel;
};

constinit Filter filter = {};

// Looks at no more than a stored name can hold; longer names equal none of them.
std::size_t BucketOf(const char *module) {
  std::uint32_t hash = 0;
  for (std::size_t i = 0; i < ZOR_MSG_NAME_SIZE && module[i] != '\0'; ++i) {
    hash = (hash << 5 | hash >> 27) ^ static_cast<unsigned char>(module[i]);
  }
  return (hash * UINT32_C(0x9e3779b1)) >> 26;
}
static_assert(kBucketCount == std::size_t{1} << (32 - 26));

TraceEntry *FindEntry(TraceEntry *list, const char *module) {
  return Find(list, [module](const TraceEntry &entry) { return std::strcmp(entry.module, module) == 0; });
}

TraceEntry *AppendEntry(TraceEntry **list, const char *module) {
  auto entry = GuardedNew<TraceEntry>();
  if (entry == nullptr) return nullptr;
  SetName(entry->module, module);
  Append(*list, entry.get());
  return entry.release();
}

// At the chain's end: of two long names that were cut to the same text the first one counts.
void AddToBucket(TraceEntry *entry) {
  TraceEntry **link = &filter.buckets[BucketOf(entry->module)];
  while (*link != nullptr) link = &(*link)->sameBucket;
  entry->sameBucket = nullptr;
  *link = entry;
}

void RebuildFilter() {
  filter.buckets = {};
  filter.all = FindEntry(filter.entries, kAll);
  filter.highestLevel = 0;
  for (TraceEntry *entry : ListView(filter.entries)) {
    AddToBucket(entry);
    filter.highestLevel = std::max(filter.highestLevel, entry->level);
  }
}

const TraceEntry *SettingOf(const char *module) {
  const TraceEntry *entry = module == nullptr ? nullptr : filter.buckets[BucketOf(module)];
  while (entry != nullptr && std::strcmp(entry->module, module) != 0) entry = entry->sameBucket;
  return entry != nullptr ? entry : filter.all;
}

}  // namespace

std::uint32_t TraceCtxSetPackageLevel(TraceEntry **list, const char *module, std::uint32_t level) noexcept {
  if (module == nullptr) module = kAll;
  if (std::strcmp(module, kAll) == 0) ZOR_UTIL_ListDeleteAll(list, nullptr);
  TraceEntry *entry = FindEntry(*list, module);
  if (level == 0) {
    if (entry != nullptr) ZOR_UTIL_ListDeleteItem(list, entry, nullptr);
    return ZOR_OK;
  }
  if (entry == nullptr) entry = AppendEntry(list, module);
  if (entry == nullptr) return ZOR_E_NO_MEMORY;
  entry->level = level;
  return ZOR_OK;
}

const TraceEntry *TraceEntries() noexcept {
  return filter.entries;
}

bool IsTraced(const char *module, std::uint32_t level) noexcept {
  if (level > filter.highestLevel) return false;
  const TraceEntry *setting = SettingOf(module);
  return setting != nullptr && level <= setting->level;
}

}  // namespace zor

uint32_t ZOR_TRACE_SetPackageLevel(const char *module, uint32_t level) {
  const uint32_t status = zor::TraceCtxSetPackageLevel(&zor::filter.entries, module, level);
  zor::RebuildFilter();
  return status;
}

uint32_t ZOR_TRACE_IsModuleEnabled(const char *module, uint32_t level) {
  return zor::IsTraced(module, level) ? 1 : 0;
}
