// The list of crash diagnostics.
#include <zor/kiva.h>
#include <zor/platform/file.h>

#include <cstdio>

#include "app/kivaapi/device_records.h"
#include "app/kivaapi/device_xdr.h"
#include "app/kivaapi/list_file.h"
#include "base/list.h"
#include "common/ascii.h"

namespace {

constexpr mode_t kFileMode = 0666;  // the umask decides
constexpr char kRule[] = "---------------------------------------------------";
static_assert(sizeof kRule == 51 + 1);

struct Field {
  const char *format;
  char *dev_crash_info::*text;
};

// Not in the order of the record: this is how the list has always been shown.
constexpr Field kPrinted[] = {
    {"DevMac            :%s \n", &dev_crash_info::DevMac},
    {"DiagnosticsState  :%s \n", &dev_crash_info::DiagnosticsState},
    {"WebDownloadURL    :%s \n", &dev_crash_info::WebDownloadURL},
    {"BetaDownloadURL   :%s \n", &dev_crash_info::BetaDownloadURL},
    {"WebSession        :%s \n", &dev_crash_info::WebSession},
};

struct CrashList {
  CrashList() = default;
  CrashList(const CrashList &) = delete;
  CrashList &operator=(const CrashList &) = delete;
  ~CrashList() { zor::ReleaseList(first); }

  // The status of reading the file, or ZOR_CRASH_E_NO_MEMORY; the list is empty after a failure.
  uint32_t Read();
  uint32_t Write() const;
  dev_crashinfo_list *Find(const char *mac) const;

  dev_crashinfo_list *first = nullptr;
};

uint32_t CrashList::Read() {
  zor::FileBytes file;
  const uint32_t status = file.Read(ZOR_PATH_CRASH_LIST);
  if (status != ZOR_FILE_OK) return status;
  first = zor::NewNode<dev_crashinfo_list>().release();
  if (first == nullptr || zor::DecodeList(file.bytes(), *first).outOfMemory) {
    zor::ReleaseList(first);
    return ZOR_CRASH_E_NO_MEMORY;
  }
  if (!zor::IsWhole(first->info)) zor::ReleaseNode(std::exchange(first, first->next));
  return ZOR_FILE_OK;
}

// The form of a list begins with a node, so an empty one is an empty file.
uint32_t CrashList::Write() const {
  zor::ReplacementFile file(ZOR_PATH_CRASH_LIST, kFileMode);
  if (file.stream() == nullptr) return ZOR_CRASH_E_FILE;
  if (first != nullptr) zor::EncodeList(file.stream(), *first);
  return file.Commit() ? ZOR_FILE_OK : ZOR_CRASH_E_FILE;
}

dev_crashinfo_list *CrashList::Find(const char *mac) const {
  return zor::Find(first, [mac](const dev_crashinfo_list &node) {
    return zor::EqualIgnoringCase(node.info.DevMac, zor::TextOrEmpty(mac));
  });
}

}  // namespace

uint32_t ZOR_Crash_GetStatusInfoList(dev_crashinfo_list **list) {
  if (list == nullptr) return ZOR_CRASH_E_ARGUMENT;
  CrashList stored;
  const uint32_t status = stored.Read();
  *list = std::exchange(stored.first, nullptr);
  return status;
}

uint32_t ZOR_Crash_UpdateAndAddDevInfoToXdr(const dev_crash_info *record) {
  if (record == nullptr) return ZOR_CRASH_E_ARGUMENT;
  CrashList list;
  const uint32_t readStatus = list.Read();
  if (readStatus == ZOR_CRASH_E_NO_MEMORY) return readStatus;  // a good list must not make way for one record
  zor::RecordCopy copy(*record);
  if (!zor::IsWhole(copy.record)) return ZOR_CRASH_E_NO_MEMORY;
  dev_crashinfo_list *node = list.Find(record->DevMac);
  if (node == nullptr) {
    node = zor::NewNode<dev_crashinfo_list>().release();
    if (node == nullptr) return ZOR_CRASH_E_NO_MEMORY;
    zor::Append(list.first, node);
  }
  std::swap(node->info, copy.record);
  const uint32_t written = list.Write();
  // That there was no list before is reported although the record is stored: callers know the first one by it.
  return written == ZOR_FILE_OK ? readStatus : written;
}

uint32_t ZOR_Crash_RemoveNodeByMac(const char *mac) {
  if (mac == nullptr) return ZOR_CRASH_E_ARGUMENT;
  CrashList list;
  const uint32_t status = list.Read();
  if (status != ZOR_FILE_OK) return status;
  dev_crashinfo_list *node = list.Find(mac);
  if (node != nullptr && zor::Unlink(list.first, node)) zor::ReleaseNode(node);
  return list.Write();
}

void ZOR_Crash_PrintStatusList(const dev_crashinfo_list *list) {
  if (list == nullptr) {
    std::printf("pstDevInfoList is null");
    return;
  }
  std::puts(kRule);
  for (const dev_crashinfo_list *node : zor::ListView<const dev_crashinfo_list>(list)) {
    for (const Field &field : kPrinted) std::printf(field.format, zor::TextOrEmpty(node->info.*field.text));
    std::printf("ResultState       :%d \n\n", static_cast<int>(node->info.ResultState));
  }
  std::puts(kRule);
}

void ZOR_Crash_DestroyDevInfo(dev_crash_info *record) {
  if (record != nullptr) zor::ReleaseTexts(*record);
}

void ZOR_Crash_DestroyDevInfoList(dev_crashinfo_list *list) {
  zor::ReleaseList(list);
}
