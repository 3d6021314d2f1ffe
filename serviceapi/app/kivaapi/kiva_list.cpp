#include "app/kivaapi/kiva_list.h"

#include <zor/platform/config.h>
#include <zor/platform/file.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "app/kivaapi/device_xdr.h"
#include "app/kivaapi/list_file.h"
#include "base/list.h"
#include "common/ascii.h"

namespace zor {
namespace {

constexpr std::uint32_t kOwnMacItem = 0x80000306;
constexpr mode_t kFileMode = 0600;
constexpr char kFileModeText[] = "600";
constexpr char kFileOwner[] = "update";
constexpr long kRetryNanoseconds = 1000000;

void WaitForWriter() {
  struct timespec rest = {0, kRetryNanoseconds};
  while (::nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

}  // namespace

bool ReadOwnMac(MacText &mac) noexcept {
  unsigned char bytes[6] = {};
  if (ZOR_ReadAppData(kOwnMacItem, bytes, sizeof bytes) != ZOR_STORE_OK) return false;
  std::snprintf(mac, sizeof mac, "%02X%02X%02X%02X%02X%02X", bytes[0], bytes[1], bytes[2], bytes[3], bytes[4],
                bytes[5]);
  return true;
}

void PrintRecordLost() noexcept {
  std::printf("Alloc kiva info list error.");
}

std::uint32_t KivaList::ReadOnce() noexcept {
  FileBytes file;
  const std::uint32_t status = file.Read(ZOR_PATH_KIVA_LIST);
  if (status != ZOR_FILE_OK) return status;
  const auto [outOfMemory, lostCount] = DecodeList(file.bytes(), head_);
  ReleaseTexts(head_.info);  // the head's own record means nothing, whatever the file says
  head_.info = {};
  if (outOfMemory) {
    ReleaseList(head_.next);
    return ZOR_FILE_E_NO_MEMORY;
  }
  for (std::uint32_t i = 0; i < lostCount; ++i) PrintRecordLost();
  return ZOR_FILE_OK;
}

// A writer that deletes the file before it writes it anew leaves a moment without one.
std::uint32_t KivaList::Read() noexcept {
  const std::uint32_t status = ReadOnce();
  if (status == ZOR_FILE_OK) return status;
  WaitForWriter();
  return ReadOnce();
}

// The file belongs to the upgrade service; a system without that account leaves it to the writer.
std::uint32_t KivaList::Write() noexcept {
  ReplacementFile file(ZOR_PATH_KIVA_LIST, kFileMode);
  if (file.stream() == nullptr) return ZOR_KIVA_E_FILE;
  EncodeList(file.stream(), head_);
  ZOR_UTIL_RemoveAndroidWPerm(file.path(), kFileModeText);
  ZOR_UTIL_ChangeFileUGid(file.path(), kFileOwner);
  return file.Commit() ? ZOR_FILE_OK : ZOR_KIVA_E_FILE;
}

dev_kivainfo_list *KivaList::Find(const char *mac) const noexcept {
  MacText own;
  if (mac == nullptr) {
    if (!ReadOwnMac(own)) return nullptr;
    mac = own;
  }
  return zor::Find(head_.next, [mac](const dev_kivainfo_list &node) { return EqualIgnoringCase(node.info.mac, mac); });
}

}  // namespace zor
