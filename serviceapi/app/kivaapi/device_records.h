// What the two kinds of device records have in common: the strings that they own, and lists of them.
#ifndef APP_KIVAAPI_DEVICE_RECORDS_H
#define APP_KIVAAPI_DEVICE_RECORDS_H

#include <zor/kiva.h>
#include <zor/platform/list.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/alloc.h"

namespace zor {

// The strings of a record, in the order of the file.
template <class Record>
inline constexpr std::array<char * Record::*, 0> kTexts = {};
template <>
inline constexpr std::array kTexts<dev_crash_info> = {&dev_crash_info::DevMac, &dev_crash_info::BetaDownloadURL,
                                                      &dev_crash_info::WebDownloadURL, &dev_crash_info::WebSession,
                                                      &dev_crash_info::DiagnosticsState};
template <>
inline constexpr std::array kTexts<dev_kiva_info> = {&dev_kiva_info::mac, &dev_kiva_info::detail,
                                                     &dev_kiva_info::xmlPath};

inline const char *TextOrEmpty(const char *text) noexcept {
  return text == nullptr ? "" : text;
}

template <class Record>
bool IsWhole(const Record &record) noexcept {
  return std::all_of(kTexts<Record>.begin(), kTexts<Record>.end(),
                     [&](char *Record::*text) { return record.*text != nullptr; });
}

template <class Record>
void ReleaseTexts(Record &record) noexcept {
  for (char *Record::*text : kTexts<Record>) std::free(std::exchange(record.*text, nullptr));
}

// A copy that owns its strings; null strings are copied as "". Without memory it is not whole.
template <class Record>
class RecordCopy {
 public:
  explicit RecordCopy(const Record &from) noexcept : record(from) {
    for (char *Record::*text : kTexts<Record>) record.*text = ::strdup(TextOrEmpty(from.*text));
  }
  RecordCopy(const RecordCopy &) = delete;
  RecordCopy &operator=(const RecordCopy &) = delete;
  ~RecordCopy() { ReleaseTexts(record); }

  Record record;
};

// A node with an empty record; null without memory.
template <class Node>
MallocPtr<Node> NewNode() noexcept {
  return MallocPtr<Node>(static_cast<Node *>(std::calloc(1, sizeof(Node))));
}

template <class Node>
void ReleaseNode(Node *node) noexcept {
  ReleaseTexts(node->info);
  std::free(node);
}

template <class Node>
void ReleaseList(Node *&list) noexcept {
  ZOR_UTIL_ListDeleteAll(&list, [](void *node) { ReleaseTexts(static_cast<Node *>(node)->info); });
}

}  // namespace zor

#endif
