// Restful requests: a daemon registers a table of procedures under a path prefix and announces its paths to the
// server; a request names a prefix and a procedure, and the procedure's text goes back to the requester.
#include <zor/limits.h>
#include <zor/mlog.h>
#include <zor/msg_build.h>
#include <zor/msg_dispatch.h>
#include <zor/platform/bounded.h>
#include <zor/status.h>

#include <array>
#include <cstring>

#include "base/alloc.h"
#include "base/list.h"
#include "base/text.h"
#include "message/header.h"
#include "sdk/loop/lag/lag.h"

namespace zor {
namespace {

struct RestfulRegistration {
  RestfulRegistration *next;
  const ZOR_MSG_RESTFUL_ENTRY *table;
  char *prefix;  // in the same block
};

RestfulRegistration *registrations = nullptr;

using PatternList = char[ZOR_MSG_RESTFUL_PATTERNS_SIZE];

// "prefix/name" of every row, separated by "|"; ends before the first pattern that does not fit with its separator.
void ExpandPatterns(const char *prefix, const ZOR_MSG_RESTFUL_ENTRY *table, PatternList &list) {
  std::size_t used = 0;
  list[0] = '\0';
  for (const ZOR_MSG_RESTFUL_ENTRY *row = table; row->name != nullptr; ++row) {
    char pattern[ZOR_MSG_RESTFUL_PATTERN_SIZE];
    snprintf_s(pattern, sizeof pattern, sizeof pattern - 1, "%s/%s", prefix, row->name);
    const char *separator = row[1].name != nullptr ? "|" : "";
    if (std::strlen(pattern) + std::strlen(separator) >= sizeof list - used) return;
    used += static_cast<std::size_t>(
        snprintf_s(list + used, sizeof list - used, sizeof list - used - 1, "%s%s", pattern, separator));
  }
}

std::uint32_t AnnouncePatterns(const char *patterns) {
  return ZOR_MSG_SendMsgData(nullptr, ZOR_MSG_RESTFUL_REGISTER, patterns,
                             static_cast<std::uint32_t>(std::strlen(patterns) + 1));
}

// The request body, null unless it is whole and its two names end inside their fields.
ZOR_MSG_RESTFUL_HEAD *RequestBody(ZOR_MSG_HEAD *msg) {
  if (msg->bodyLength <= ZOR_MSG_RESTFUL_HEAD_SIZE) return nullptr;
  auto *body = static_cast<ZOR_MSG_RESTFUL_HEAD *>(BodyOf(msg));
  const bool namesEnd = std::memchr(body->prefix, 0, sizeof body->prefix) != nullptr &&
                        std::memchr(body->name, 0, sizeof body->name) != nullptr;
  return namesEnd ? body : nullptr;
}

// The first registration of the prefix decides: a name that it lacks is not looked for in a later one.
ZOR_MSG_RESTFUL_PROC FindProcedure(const ZOR_MSG_RESTFUL_HEAD &request) {
  const RestfulRegistration *registration = Find(
      registrations, [&](const RestfulRegistration &each) { return std::strcmp(each.prefix, request.prefix) == 0; });
  if (registration == nullptr) return nullptr;
  const ZOR_MSG_RESTFUL_ENTRY *row = registration->table;
  while (row->name != nullptr && std::strcmp(row->name, request.name) != 0) ++row;
  return row->name != nullptr ? row->proc : nullptr;
}

void DispatchRestful(ZOR_MSG_HEAD *msg) {
  ZOR_MSG_RESTFUL_HEAD *body = RequestBody(msg);
  if (body == nullptr) return;
  const ZOR_MSG_RESTFUL_PROC proc = FindProcedure(*body);
  if (proc == nullptr) return;

  const ZOR_MSG_HEAD request = *msg;
  char *text = nullptr;
  std::uint32_t status = ZOR_OK;
  {
    const lag::Span span(ZOR_UV_LAG_HANDLER, proc, msg);
    status = proc(body, &text);
  }
  const MallocPtr<char> owner(text);
  if (status != ZOR_OK) {
    mlog_print("msg", ZOR_MLOG_FATAL, "restful proc error %x.\n", status);
    return;
  }
  NameField requester;
  CopyName(requester, request.source);
  const std::uint32_t length = text == nullptr ? 0 : static_cast<std::uint32_t>(std::strlen(text) + 1);
  ZOR_MSG_SendMsgDataWithDataSeq(requester, request.type, text, length, request.data, request.sequence);
}

// Puts the dispatcher into the handler table, once for the life of the process.
std::uint32_t RegisterDispatcher() {
  struct Slot {
    std::uint32_t type;
    ZOR_MSG_PROC_ENTRY *handle;
  };
  static std::array<Slot, 3> slots = {
      {{ZOR_MSG_RESTFUL_REQUEST_A, nullptr}, {ZOR_MSG_RESTFUL_REQUEST, nullptr}, {ZOR_MSG_RESTFUL_REQUEST_B, nullptr}}};
  for (Slot &slot : slots) {
    if (slot.handle != nullptr) continue;
    const std::uint32_t status = ZOR_MSG_RegMsgProc(slot.type, DispatchRestful, 0, &slot.handle);
    if (status != ZOR_OK) return status;
  }
  return ZOR_OK;
}

std::uint32_t AddRegistration(const char *prefix, const ZOR_MSG_RESTFUL_ENTRY *table) {
  const std::size_t prefixSize = std::strlen(prefix) + 1;
  MallocPtr<RestfulRegistration> record(
      static_cast<RestfulRegistration *>(GuardedCalloc(sizeof(RestfulRegistration) + prefixSize)));
  if (record == nullptr) return ZOR_E_NO_MEMORY;
  record->table = table;
  record->prefix = static_cast<char *>(std::memcpy(record.get() + 1, prefix, prefixSize));
  const std::uint32_t status = RegisterDispatcher();
  if (status == ZOR_OK) Append(registrations, record.release());
  return status;
}

}  // namespace
}  // namespace zor

uint32_t ZOR_MSG_RegRestfulProcs(const char *prefix, const ZOR_MSG_RESTFUL_ENTRY *table) {
  return ZOR_MSG_RegRestfulProcsEx(prefix, table, nullptr);
}

uint32_t ZOR_MSG_RegRestfulProcsEx(const char *prefix, const ZOR_MSG_RESTFUL_ENTRY *table, const void *expand) {
  if (prefix == nullptr || table == nullptr) return ZOR_E_ARGUMENT;
  zor::PatternList expanded;
  if (expand != nullptr) zor::ExpandPatterns(prefix, table, expanded);
  const uint32_t status = zor::AnnouncePatterns(expand != nullptr ? expanded : prefix);
  return status == ZOR_OK ? zor::AddRegistration(prefix, table) : status;
}
