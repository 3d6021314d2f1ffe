// The KIVA list: reading, and the changes that "cms" makes.
#include <unistd.h>
#include <zor/kiva.h>
#include <zor/msg_head.h>
#include <zor/platform/file.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "app/kivaapi/kiva_list.h"
#include "base/fixed_path.h"
#include "base/list.h"

namespace {

constexpr size_t kMacLength = 12;
constexpr size_t kMaskedDigits[] = {0, 1, 4, 5, 8, 9};

// Takes the NUL-terminated text in front of the rest of a body; null when none ends there.
char *TakeText(char *&from, size_t &rest) {
  void *end = std::memchr(from, '\0', rest);
  if (end == nullptr) return nullptr;
  char *behind = static_cast<char *>(end) + 1;
  rest -= static_cast<size_t>(behind - from);
  return std::exchange(from, behind);
}

// The record in a request; it borrows its strings from the message. What is missing stays null.
dev_kiva_info RecordIn(ZOR_MSG_HEAD *message) {
  dev_kiva_info info = {};
  auto *body = static_cast<char *>(ZOR_MSG_GetMsgByHead(message));
  if (body == nullptr || message->bodyLength < sizeof info.status) return info;
  std::memcpy(&info.status, body, sizeof info.status);
  char *text = body + sizeof info.status;
  size_t rest = message->bodyLength - sizeof info.status;
  for (char *dev_kiva_info::*field : zor::kTexts<dev_kiva_info>) {
    info.*field = TakeText(text, rest);
    if (info.*field == nullptr) break;
  }
  return info;
}

// False without memory; the list is as it was then.
bool Insert(zor::KivaList &list, const dev_kiva_info &info) {
  zor::RecordCopy copy(info);
  if (!zor::IsWhole(copy.record)) return false;
  dev_kivainfo_list *node = list.Find(info.mac);
  if (node == nullptr) {
    node = zor::NewNode<dev_kivainfo_list>().release();
    if (node == nullptr) return false;
    node->next = std::exchange(list.first(), node);
  }
  std::swap(node->info, copy.record);
  return true;
}

}  // namespace

void ZOR_UPG_DestroyKivaInfo(dev_kiva_info *info) {
  if (info != nullptr) zor::ReleaseTexts(*info);
}

void ZOR_UPG_DestroyKivaInfoList(dev_kivainfo_list **list) {
  if (list != nullptr) zor::ReleaseList(*list);
}

uint32_t ZOR_UPG_GetKivaInfoList(dev_kivainfo_list *head) {
  if (head == nullptr) return ZOR_KIVA_E_ARGUMENT;
  zor::KivaList list;
  const uint32_t status = list.Read();
  *head = {};
  head->next = std::exchange(list.first(), nullptr);
  return status;
}

dev_kiva_info *ZOR_UPG_GetKivaInfoByMac(const char *mac) {
  zor::KivaList list;
  list.Read();
  dev_kivainfo_list *node = list.Find(mac);
  if (node == nullptr) return nullptr;
  auto *info = static_cast<dev_kiva_info *>(std::calloc(1, sizeof(dev_kiva_info)));
  if (info != nullptr) std::swap(*info, node->info);
  return info;
}

uint32_t ZOR_UPG_GetKivaInfoListCount(void) {
  zor::KivaList list;
  list.Read();
  return ZOR_UTIL_ListGetCount(&list.first());
}

uint32_t ZOR_UPG_IsDevNeedUpdate(const char *mac) {
  zor::KivaList list;
  list.Read();
  const dev_kivainfo_list *node = list.Find(mac);
  return node == nullptr ? 0 : node->info.status.flags & ZOR_KIVA_NEEDS_UPDATE;
}

char *ZOR_UPG_GetDevMac(const char *mac) {
  if (mac != nullptr) return ::strdup(mac);
  zor::MacText own;
  return zor::ReadOwnMac(own) ? ::strdup(own) : nullptr;
}

void ZOR_KIVA_DisguiseMacAddress(const char *mac, char *out, uint32_t size) {
  if (mac == nullptr || out == nullptr || size <= kMacLength || strnlen(mac, kMacLength + 1) != kMacLength) return;
  std::memmove(out, mac, kMacLength + 1);
  for (const size_t digit : kMaskedDigits) out[digit] = '*';
}

uint32_t ZOR_UPG_AddDevKivaInfoToXDR(const dev_kiva_info *info) {
  if (info == nullptr || !zor::IsWhole(*info)) return ZOR_KIVA_E_ARGUMENT;
  zor::KivaList list;
  if (::access(zor::FixedPath(ZOR_PATH_KIVA_LIST).c_str(), R_OK) == 0) {
    const uint32_t status = list.Read();
    if (status != ZOR_FILE_OK) return status;
  }
  if (!Insert(list, *info)) zor::PrintRecordLost();
  return list.Write();
}

uint32_t ZOR_UPG_SetUpdateFlag(const char *macs) {
  if (macs == nullptr) return ZOR_KIVA_E_ARGUMENT;
  zor::KivaList list;
  const uint32_t status = list.Read();
  if (status != ZOR_FILE_OK) return status;
  std::string_view rest = macs;
  while (rest.size() >= kMacLength) {
    char mac[kMacLength + 1] = {};
    rest.copy(mac, kMacLength);
    dev_kivainfo_list *node = list.Find(mac);
    if (node != nullptr) node->info.status.flags |= ZOR_KIVA_NEEDS_UPDATE;
    rest.remove_prefix(std::min(rest.size(), kMacLength + 1));
  }
  return list.Write();
}

uint32_t ZOR_UPG_RemoveDevKivaInfoFromXDR(void) {
  zor::KivaList list;
  const uint32_t status = list.Read();
  if (status != ZOR_FILE_OK) return status;
  for (dev_kivainfo_list **link = &list.first(); *link != nullptr && (*link)->next != nullptr;) {
    dev_kivainfo_list *node = *link;
    if (node->info.status.state != ZOR_KIVA_STATE_KEPT) {
      *link = node->next;
      zor::ReleaseNode(node);
    }
    // Behind a removed record this is its successor, which is left alone: a pass spares every second one.
    link = &(*link)->next;
  }
  return list.Write();
}

uint32_t ZOR_UPG_DevKivaAddProc(ZOR_MSG_HEAD *message) {
  const dev_kiva_info info = RecordIn(message);
  return ZOR_UPG_AddDevKivaInfoToXDR(&info);
}

uint32_t ZOR_UPG_DevKivaInfoRemoveProc(ZOR_MSG_HEAD *message) {
  const auto *body = static_cast<const char *>(ZOR_MSG_GetMsgByHead(message));
  if (body == nullptr) return ZOR_KIVA_E_ARGUMENT;
  // The MAC comes with or without its NUL.
  char mac[ZOR_KIVA_MAC_SIZE] = {};
  std::memcpy(mac, body, strnlen(body, std::min<size_t>(message->bodyLength, sizeof mac - 1)));
  zor::KivaList list;
  const uint32_t status = list.Read();
  if (status != ZOR_FILE_OK) return status;
  dev_kivainfo_list *node = list.Find(mac);
  if (node != nullptr && zor::Unlink(list.first(), node)) zor::ReleaseNode(node);
  return list.Write();
}
