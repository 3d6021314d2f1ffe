// Requests to the daemon that keeps the KIVA list.
#include <zor/kiva.h>
#include <zor/limits.h>
#include <zor/msg.h>
#include <zor/platform/file.h>
#include <zor/platform/text.h>

#include <cstdio>
#include <cstring>

#include "app/kivaapi/kiva_list.h"
#include "message/context.h"

namespace {

// Sends a request of one type, or asks with one of the other.
enum class Way { kTell, kAsk };

uint32_t Ask(ZOR_MSG_HEAD *request) {
  ZOR_MSG_HEAD *received = nullptr;
  const uint32_t status = ZOR_MSG_SendAndRecv(request, &received, ZOR_KIVA_WAIT_MS);
  const zor::MessagePtr reply(received);
  if (status != ZOR_OK) return status;
  return reply != nullptr && reply->data == 0 ? ZOR_OK : ZOR_KIVA_E_REFUSED;
}

// A message to the daemon with a body to fill; null when there is no memory.
zor::MessagePtr NewRequest(uint32_t type, size_t bodyLength) {
  void *body = ZOR_MSG_GetMsgBlock(static_cast<uint32_t>(bodyLength));
  if (body == nullptr) return nullptr;
  ZOR_MSG_SetMsgProfile(body, ZOR_KIVA_DAEMON_NAME, type, static_cast<uint32_t>(bodyLength));
  return zor::MessagePtr(ZOR_MSG_GetMsgHead(body));
}

bool IsTooLong(const char *text) {
  return strnlen(text, ZOR_KIVA_TEXT_SIZE) == ZOR_KIVA_TEXT_SIZE;
}

using XmlPath = char[ZOR_KIVA_XML_PATH_SIZE];

void SetXmlPath(XmlPath &path, const dev_kiva_info &info) {
  if (info.xmlPath != nullptr) {
    std::snprintf(path, sizeof path, "%s", info.xmlPath);
  } else {
    std::snprintf(path, sizeof path, ZOR_PATH_KIVA_XML_FORMAT, info.mac);
  }
}

uint32_t SendRecord(const dev_kiva_info &info, Way way) {
  const char *detail = zor::TextOrEmpty(info.detail);
  if (info.mac == nullptr) return ZOR_KIVA_E_ARGUMENT;
  if (IsTooLong(info.mac) || IsTooLong(detail)) {
    std::printf("KIVAXDR: Para too long \r");
    return ZOR_KIVA_E_ARGUMENT;
  }
  XmlPath path;
  SetXmlPath(path, info);
  const char *const texts[] = {info.mac, detail, path};
  size_t length = sizeof info.status;
  for (const char *text : texts) length += std::strlen(text) + 1;
  const zor::MessagePtr request = NewRequest(way == Way::kAsk ? ZOR_MSG_KIVA_ADD_SYNC : ZOR_MSG_KIVA_ADD, length);
  if (request == nullptr) return ZOR_KIVA_E_NO_MESSAGE;
  auto *to = static_cast<char *>(ZOR_MSG_GetMsgByHead(request.get()));
  std::memcpy(to, &info.status, sizeof info.status);
  to += sizeof info.status;
  for (const char *text : texts) to = ::stpcpy(to, text) + 1;
  return way == Way::kAsk ? Ask(request.get()) : ZOR_MSG_Send(request.get());
}

// Sends the stored record of a MAC after a change; change(record) says whether there is anything to send.
template <class Change>
uint32_t SendChanged(const char *mac, Way way, Change change) {
  zor::KivaList list;
  const uint32_t status = list.Read();
  if (status != ZOR_FILE_OK) return status;
  const dev_kivainfo_list *node = list.Find(mac);
  if (node == nullptr) return ZOR_KIVA_E_UNKNOWN;
  dev_kiva_info record = node->info;  // the strings stay the list's
  return change(record) ? SendRecord(record, way) : ZOR_OK;
}

template <class Value>
void ReplaceIfGiven(Value &value, Value given) {
  if (given != Value{}) value = given;
}

uint32_t Update(const dev_kiva_info *info, Way way) {
  if (info == nullptr) return ZOR_KIVA_E_ARGUMENT;
  return SendChanged(info->mac, way, [info](dev_kiva_info &record) {
    ReplaceIfGiven(record.detail, info->detail);
    ReplaceIfGiven(record.xmlPath, info->xmlPath);
    ReplaceIfGiven(record.status.dlSize, info->status.dlSize);
    ReplaceIfGiven(record.status.param1, info->status.param1);
    ReplaceIfGiven(record.status.param3, info->status.param3);
    record.status.state = info->status.state;
    return true;
  });
}

uint32_t UpdateState(const char *mac, uint32_t state, Way way) {
  return SendChanged(mac, way, [state](dev_kiva_info &record) {
    record.status.state = state;
    return true;
  });
}

}  // namespace

uint32_t ZOR_UPG_AddDevKivaInfo(const dev_kiva_info *info) {
  return info == nullptr ? ZOR_KIVA_E_ARGUMENT : SendRecord(*info, Way::kTell);
}

uint32_t ZOR_UPG_AddDevKivaInfoSync(const dev_kiva_info *info) {
  return info == nullptr ? ZOR_KIVA_E_ARGUMENT : SendRecord(*info, Way::kAsk);
}

uint32_t ZOR_UPG_RemoveDevKivaInfo(const char *mac) {
  if (mac == nullptr) return ZOR_KIVA_E_ARGUMENT;
  const zor::MessagePtr request = NewRequest(ZOR_MSG_KIVA_REMOVE, ZOR_KIVA_MAC_SIZE);
  if (request == nullptr) return ZOR_KIVA_E_NO_MESSAGE;
  auto *body = static_cast<char *>(ZOR_MSG_GetMsgByHead(request.get()));
  std::memset(body, 0, ZOR_KIVA_MAC_SIZE);
  ZOR_UTIL_Strip_Separator(mac, ':', body, ZOR_KIVA_MAC_SIZE);
  return ZOR_MSG_Send(request.get());
}

uint32_t ZOR_UPG_RemoveDevKivaInfoSync(const char *mac) {
  if (mac == nullptr) return ZOR_KIVA_E_ARGUMENT;
  char field[ZOR_KIVA_MAC_SIZE] = {};
  ZOR_UTIL_Strip_Separator(mac, ':', field, sizeof field);
  const size_t length = std::strlen(field);
  const zor::MessagePtr request = NewRequest(ZOR_MSG_KIVA_REMOVE_SYNC, length);
  if (request == nullptr) return ZOR_KIVA_E_NO_MESSAGE;
  std::memcpy(request.get() + 1, field, length);  // the one-way request has the whole field
  return Ask(request.get());
}

uint32_t ZOR_UPG_UpdateKivaInfo(const dev_kiva_info *info) {
  return Update(info, Way::kTell);
}

uint32_t ZOR_UPG_UpdateKivaInfoSync(const dev_kiva_info *info) {
  return Update(info, Way::kAsk);
}

uint32_t ZOR_UPG_UpdateKivaStateEx(const char *mac, uint32_t state) {
  return UpdateState(mac, state, Way::kTell);
}

uint32_t ZOR_UPG_UpdateKivaStateExSync(const char *mac, uint32_t state) {
  return UpdateState(mac, state, Way::kAsk);
}

uint32_t ZOR_UPG_UpdateKivaDlSize(const char *mac, uint32_t size) {
  return SendChanged(mac, Way::kTell, [size](dev_kiva_info &record) {
    record.status.dlSize = size;
    return record.status.state == ZOR_KIVA_STATE_LOADING;
  });
}
