// Upgrade information: a file for each attached device, application data for the gateway itself.
#include <unistd.h>
#include <zor/kiva.h>
#include <zor/mlog.h>
#include <zor/platform/config.h>
#include <zor/platform/file.h>
#include <zor/platform/text.h>

#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>

#include "app/kivaapi/kiva_list.h"
#include "base/file_ptr.h"
#include "base/fixed_path.h"
#include "common/ascii.h"

static_assert(sizeof(ZOR_KIVA_UPDATE_INFO) == 5124 && offsetof(ZOR_KIVA_UPDATE_INFO, text) == 4);

namespace {

constexpr uint32_t kUpgradeTimeItem = 0x2000050b;
constexpr uint32_t kUpgradeTextItem = 0x2000050c;

constexpr size_t kFileKeySize = 36;
constexpr size_t kSavedTextEnd = 5119;  // one less than the record would hold

using InfoPtr = zor::MallocPtr<ZOR_KIVA_UPDATE_INFO>;

// The file of a device; none when its MAC has nothing to name a file by.
std::optional<zor::FixedPath> ReportPath(const char *mac) {
  char key[kFileKeySize] = {};
  ZOR_UTIL_Strip_Separator(mac, ':', key, sizeof key);
  if (key[0] == '\0') return std::nullopt;
  for (char &each : key) each = zor::AsciiUpper(each);
  char path[sizeof ZOR_PATH_KIVA_UPDATE_FORMAT + kFileKeySize];
  std::snprintf(path, sizeof path, ZOR_PATH_KIVA_UPDATE_FORMAT, key);
  return zor::FixedPath(path);
}

// What describes the gateway's own upgrade; null when the MAC or the file is missing.
zor::MallocPtr<char> OwnDescription() {
  zor::MacText mac;
  if (!zor::ReadOwnMac(mac)) return nullptr;
  char path[sizeof ZOR_PATH_KIVA_XML_FORMAT + sizeof mac];
  std::snprintf(path, sizeof path, ZOR_PATH_KIVA_XML_FORMAT, mac);
  const zor::MallocPtr<char> resolved(::realpath(zor::FixedPath(path).c_str(), nullptr));
  return zor::MallocPtr<char>(resolved == nullptr ? nullptr : ZOR_UTIL_StrFileToBuf(resolved.get()));
}

// The store has 4 bytes, whatever the width of this machine's time.
uint32_t ReadUpgradeTime(uint32_t *seconds) {
  return ZOR_ReadAppData(kUpgradeTimeItem, seconds, sizeof *seconds);
}

}  // namespace

uint32_t ZOR_UPG_SaveUpdateInfo(const char *mac, uint32_t value, const char *text) {
  if (mac == nullptr) return 1;
  const InfoPtr info = zor::GuardedNew<ZOR_KIVA_UPDATE_INFO>();
  if (info == nullptr) return 1;
  info->value = value;
  size_t length = text == nullptr ? 0 : strnlen(text, kSavedTextEnd);
  if (length == kSavedTextEnd) length = 0;  // left out, not cut
  if (length > 0) std::memcpy(info->text, text, length);
  const auto path = ReportPath(mac);
  const auto size = static_cast<uint32_t>(offsetof(ZOR_KIVA_UPDATE_INFO, text) + length + 1);
  // A lost report does not affect the upgrade that it describes.
  if (path) ZOR_UTIL_WriteBufToFile(path->c_str(), info.get(), size);
  return 0;
}

ZOR_KIVA_UPDATE_INFO *ZOR_UPG_GetUpdateInfo(const char *mac) {
  const auto path = ReportPath(mac);
  if (!path) return nullptr;
  const zor::FilePtr file(std::fopen(path->c_str(), "rbe"));
  if (file == nullptr) return nullptr;
  InfoPtr info = zor::GuardedNew<ZOR_KIVA_UPDATE_INFO>();
  if (info == nullptr || std::fread(info.get(), 1, sizeof *info, file.get()) == 0) return nullptr;
  info->text[sizeof info->text - 1] = '\0';
  return info.release();
}

uint32_t ZOR_UPG_ClearUpdateInfo(const char *mac) {
  const auto path = ReportPath(mac);
  if (!path) return 1;
  ::unlink(path->c_str());
  return 0;
}

uint32_t ZOR_UPG_SetSelfUpdateInfo(const char *text) {
  const auto now = static_cast<uint32_t>(std::time(nullptr));
  ZOR_WriteAppDataFunc(kUpgradeTimeItem, &now, sizeof now);
  ZOR_WriteAppDataFunc(kUpgradeTextItem, "", 1);
  if (text != nullptr && *text != '\0') {
    ZOR_WriteAppDataFunc(kUpgradeTextItem, text, static_cast<uint32_t>(std::strlen(text) + 1));
  }
  return 1;
}

ZOR_KIVA_UPDATE_INFO *ZOR_UPG_GetSelfUpdateInfo(void) {
  InfoPtr info = zor::GuardedNew<ZOR_KIVA_UPDATE_INFO>();
  if (info == nullptr) return nullptr;
  const uint32_t status = ReadUpgradeTime(&info->value);
  if (status != ZOR_STORE_OK) {
    mlog_print("upgapi", ZOR_MLOG_ERROR, "kiva update info read upgtime failed %x\n", status);
  }
  uint32_t length = 0;
  ZOR_GetAppDataLen(kUpgradeTextItem, &length);
  if (length > 0 && length <= sizeof info->text) ZOR_ReadAppData(kUpgradeTextItem, info->text, length);
  info->text[sizeof info->text - 1] = '\0';
  return info.release();
}

char *ZOR_UPG_GetSelfUpdateInfoTime(void) {
  uint32_t seconds = 0;
  if (ReadUpgradeTime(&seconds) != ZOR_STORE_OK) return nullptr;
  const time_t time = seconds;
  struct tm local = {};
  if (::localtime_r(&time, &local) == nullptr) return nullptr;
  char text[80];
  std::snprintf(text, sizeof text, "%4d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
                local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  return ::strdup(text);
}

uint32_t ZOR_UPG_RecordTimeAndLog(uint32_t success) {
  if (success != 1) return ZOR_UPG_SetSelfUpdateInfo(nullptr);
  const zor::MallocPtr<char> text = OwnDescription();
  ZOR_UPG_SetSelfUpdateInfo(text.get());
  return text == nullptr ? 1 : 0;
}
