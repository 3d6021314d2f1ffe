// Requests to the log daemon.
#include <zor/limits.h>
#include <zor/log.h>
#include <zor/mlog.h>
#include <zor/msg.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "message/context.h"

static_assert(sizeof(ZOR_LOG_RECORD) == 276);
static_assert(offsetof(ZOR_LOG_RECORD, typeLevel) == 4 && offsetof(ZOR_LOG_RECORD, index) == 12);
static_assert(offsetof(ZOR_LOG_RECORD, parameterCount) == 16 && offsetof(ZOR_LOG_RECORD, usedLength) == 18);
static_assert(offsetof(ZOR_LOG_RECORD, parameters) == 20);
static_assert(sizeof(ZOR_LOG_QUERY) == 76);
static_assert(offsetof(ZOR_LOG_QUERY, typeLevel) == 4 && offsetof(ZOR_LOG_QUERY, count) == 8);
static_assert(offsetof(ZOR_LOG_QUERY, text) == 12);
static_assert(sizeof(ZOR_LOG_SERVERS) == 308);
static_assert(offsetof(ZOR_LOG_SERVERS, server2) == 132 && offsetof(ZOR_LOG_SERVERS, number1) == 264);
static_assert(offsetof(ZOR_LOG_SERVERS, port) == 266 && offsetof(ZOR_LOG_SERVERS, name) == 268);
static_assert(offsetof(ZOR_LOG_SERVERS, number2) == 304);

namespace {

constexpr uint32_t kEverything = 0xffffffff;

constexpr uint32_t TypeLevelCode(uint32_t type, uint32_t level) {
  return (type << ZOR_LOG_TYPE_SHIFT) | (level & ZOR_LOG_LEVEL_MASK);
}

constexpr std::size_t SlotOf(std::size_t textLength) {
  return (textLength + 1 + ZOR_LOG_SLOT_ALIGN - 1) / ZOR_LOG_SLOT_ALIGN * ZOR_LOG_SLOT_ALIGN;
}

// Stores a text in a zeroed field, cut so that it ends in a NUL; null leaves the field empty.
template <std::size_t kSize>
void SetText(char (&field)[kSize], const char *text) {
  if (text != nullptr) std::memcpy(field, text, strnlen(text, kSize - 1));
}

// A message to the daemon around a body; null when there is no memory.
template <class Body>
zor::MessagePtr NewRequest(uint32_t type, const Body &body) {
  void *block = ZOR_MSG_GetMsgBlock(sizeof body);
  if (block == nullptr) return nullptr;
  zor::MessagePtr request(ZOR_MSG_GetMsgHead(block));
  std::memcpy(block, &body, sizeof body);
  ZOR_MSG_SetMsgProfile(block, ZOR_LOG_DAEMON_NAME, type, sizeof body);
  return request;
}

template <class Body>
uint32_t Post(uint32_t type, const Body &body) {
  const zor::MessagePtr request = NewRequest(type, body);
  return request == nullptr ? ZOR_LOG_FAILURE : ZOR_MSG_Send(request.get());
}

// Waits for the reply and stores its data word in *result, which may be null.
template <class Body>
uint32_t Ask(uint32_t type, const Body &body, uint32_t timeoutMs, uint32_t *result = nullptr) {
  const zor::MessagePtr request = NewRequest(type, body);
  if (request == nullptr) return ZOR_LOG_FAILURE;
  ZOR_MSG_HEAD *received = nullptr;
  const uint32_t status = ZOR_MSG_SendAndRecv(request.get(), &received, timeoutMs);
  const zor::MessagePtr reply(received);
  if (status == ZOR_OK && reply != nullptr && result != nullptr) *result = reply->data;
  return status;
}

// Takes parameters up to the first that does not fit; a smaller one behind it is not tried.
void TakeParameters(ZOR_LOG_RECORD &record, va_list texts) {
  std::size_t used = 0;
  while (const char *text = va_arg(texts, const char *)) {
    if (*text == '\0') text = ZOR_LOG_EMPTY_PARAMETER;
    const std::size_t length = std::strlen(text);
    const std::size_t needed = used + SlotOf(length);
    if (needed > sizeof record.parameters) {
      std::printf("[Warning] %s paras are too long, need at least %d bytes...\n", "ZOR_LOG_API_Record_Log",
                  static_cast<int>(needed));
      break;
    }
    std::memcpy(record.parameters + used, text, length);
    used = needed;
    ++record.parameterCount;
  }
  record.usedLength = static_cast<uint16_t>(used);
}

uint32_t Query(uint32_t type, const char *text, uint32_t count, uint32_t typeLevel, uint32_t selector,
               uint32_t *result) {
  ZOR_LOG_QUERY query = {selector, typeLevel, count, {}};
  SetText(query.text, text);
  return Ask(type, query, ZOR_LOG_QUERY_WAIT_MS, result);
}

}  // namespace

uint32_t ZOR_LOG_API_Record_Log(uint32_t index, ...) {
  if (ZOR_UTIL_LogItemFindByIdx(index) == nullptr) return ZOR_LOG_FAILURE;
  ZOR_LOG_RECORD record = {};
  record.index = index;
  va_list texts;
  va_start(texts, index);
  TakeParameters(record, texts);
  va_end(texts);
  if ((index & ZOR_LOG_SYNC_FLAG) != 0) return Ask(ZOR_LOG_MSG_RECORD, record, ZOR_LOG_STORE_WAIT_MS);
  return Post(ZOR_LOG_MSG_RECORD, record);
}

uint32_t ZOR_LOG_API_Record_KLog(uint32_t type, uint32_t level, uint32_t, const char *text) {
  if (type == 0 || level == 0 || text == nullptr) return ZOR_LOG_FAILURE;
  ZOR_LOG_RECORD record = {};
  const std::size_t length = std::strlen(text);
  if (length >= sizeof record.parameters) {
    std::printf("[Warning] %s paras are too long, at least %d bytes...\n", "ZOR_LOG_API_Record_KLog",
                static_cast<int>(length));
  }
  // Not terminated when truncated: the text fills the whole area then.
  std::memcpy(record.parameters, text, std::min(length, sizeof record.parameters));
  record.typeLevel = TypeLevelCode(type, level);
  record.index = ZOR_LOG_KERNEL_INDEX;
  record.parameterCount = 1;
  record.usedLength = static_cast<uint16_t>(std::min(SlotOf(length), sizeof record.parameters));
  return Post(ZOR_LOG_MSG_RECORD_KERNEL, record);
}

uint32_t ZOR_LOG_API_Query_Items(const char *text, uint32_t count, uint32_t type, uint32_t level, uint32_t selector,
                                 uint32_t *result) {
  if (text == nullptr || type == 0 || level == 0) return ZOR_LOG_FAILURE;
  return Query(ZOR_LOG_MSG_QUERY, text, count, TypeLevelCode(type, level), selector, result);
}

uint32_t ZOR_LOG_API_System_Query_Items(const char *text, uint32_t count, uint32_t *result) {
  if (text == nullptr) return ZOR_LOG_FAILURE;
  return Query(ZOR_LOG_MSG_SYSTEM_QUERY, text, count, kEverything, kEverything, result);
}

uint32_t ZOR_LOG_API_Set_TypeLevel_Filter(uint32_t type, uint32_t level) {
  return ZOR_MSG_SendSimpleMsg(ZOR_LOG_DAEMON_NAME, ZOR_LOG_MSG_SET_FILTER, TypeLevelCode(type, level));
}

uint32_t ZOR_LOG_API_Clear_Log_By_Type(uint32_t type) {
  if (type == 0) return ZOR_LOG_FAILURE;
  return ZOR_MSG_SendSimpleMsg(ZOR_LOG_DAEMON_NAME, ZOR_LOG_MSG_CLEAR, TypeLevelCode(type, 0));
}

uint32_t ZOR_LOG_API_Set_RtoServer(const char *name, const char *server1, uint16_t number1, const char *server2,
                                   uint16_t port, uint32_t number2) {
  ZOR_LOG_SERVERS servers = {};
  SetText(servers.server1, server1);
  SetText(servers.server2, server2);
  SetText(servers.name, name);
  servers.number1 = number1;
  servers.port = port;
  servers.number2 = number2;
  return Post(ZOR_LOG_MSG_SET_SERVER, servers);
}

uint32_t ZOR_LOG_API_Flush_Log(int32_t callerLine, const char *callerName) {
  if (callerName == nullptr) return ZOR_LOG_FAILURE;
  uint32_t word = 0;
  const uint32_t status =
      ZOR_MSG_SendAndRecvMsgData(ZOR_LOG_DAEMON_NAME, ZOR_LOG_MSG_FLUSH, 0, ZOR_LOG_STORE_WAIT_MS, &word);
  mlog_print("msg", ZOR_MLOG_WARNING, "Flash operation %s called by %s %d result(%d)(%d) \r\n", "ZOR_LOG_API_Flush_Log",
             callerName, callerLine, status, word);
  return status;
}

uint32_t ZOR_LOG_API_Flush_Log_Async(int32_t callerLine, const char *callerName) {
  if (callerName == nullptr) return ZOR_LOG_FAILURE;
  const uint32_t status = ZOR_MSG_SendSimpleMsg(ZOR_LOG_DAEMON_NAME, ZOR_LOG_MSG_FLUSH, 0);
  mlog_print("msg", ZOR_MLOG_WARNING, "Flash operation %s called by %s %d result(%d)\r\n",
             "ZOR_LOG_API_Flush_Log_Async", callerName, callerLine, status);
  return status;
}
