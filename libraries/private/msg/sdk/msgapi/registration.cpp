#include "sdk/msgapi/registration.h"

#include <zor/msg_build.h>
#include <zor/msg_request.h>
#include <zor/status.h>
#include <zor/uv_timer.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/bytes.h"
#include "base/text.h"
#include "message/context.h"
#include "message/header.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/timer/timer.h"
#include "trace/trace.h"

namespace zor {
namespace {

constexpr std::uint64_t kPeriodMaxMs = 0x7fffffff;

void SendReport(void *) {
  ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_TIMED_REPORT, 0);
}

void StopIfReport(UvWatcher *watcher, void *) {
  if ((watcher->flags & UV_WATCHER_TIMER) == 0) return;
  auto &timer = RecordOf<UvTimer>(watcher);
  if (timer.callback == SendReport) ZOR_UTIL_TimerDel(&timer);
}

// A reply that is too short to hold the period requests no reports.
void StartReports(std::string_view body) {
  StopReports();
  if (body.size() < sizeof(ZOR_MSG_REGISTER_REPLY)) return;
  if (LoadU32(body.data() + offsetof(ZOR_MSG_REGISTER_REPLY, reportSwitch)) == 0) return;
  const std::uint64_t seconds = LoadU32(body.data() + offsetof(ZOR_MSG_REGISTER_REPLY, reportSeconds));
  AddTimer(&MainLoop(), static_cast<std::uint32_t>(std::min(seconds * 1000, kPeriodMaxMs)), 0, SendReport, nullptr);
}

// Also without settings: this call is what puts the granted name into the trace lines.
void ApplyTraceSettings(std::string_view body) {
  body.remove_prefix(std::min(body.size(), sizeof(ZOR_MSG_REGISTER_REPLY)));
  TraceMsgInitRespProc(body.empty() ? nullptr : body.data(), static_cast<std::uint32_t>(body.size()));
}

}  // namespace

ZOR_MSG_HEAD NewRegistration() noexcept {
  ZOR_MSG_HEAD request = {};
  request.type = ZOR_MSG_REGISTER_APP;
  CopyName(request.source, g_stMsgCtx.appName);
  return request;
}

void SetPeerByteOrder(const ZOR_MSG_HEAD &reply) noexcept {
  g_stMsgCtx.flags = (g_stMsgCtx.flags & ~ZOR_MSG_FLAG_SWAP) | (reply.data != 0 ? ZOR_MSG_FLAG_SWAP : 0);
}

void ApplySettings(const ZOR_MSG_HEAD &reply) noexcept {
  const std::string_view body(static_cast<const char *>(BodyOf(&reply)), reply.bodyLength);
  StartReports(body);
  ApplyTraceSettings(body);
}

std::uint32_t Register() noexcept {
  g_stMsgCtx.flags &= ~ZOR_MSG_FLAG_SWAP;  // that of an earlier connection: no registration is converted
  ZOR_MSG_HEAD request = NewRegistration();
  ZOR_MSG_HEAD *received = nullptr;
  const std::uint32_t status = ZOR_MSG_SendAndRecv(&request, &received, 0);
  const MessagePtr reply(received);
  if (status != ZOR_OK) return status;
  if (reply == nullptr) return ZOR_E_ARGUMENT;
  SetPeerByteOrder(*reply);
  CopyName(g_stMsgCtx.appName, reply->destination);
  ApplySettings(*reply);
  return g_stMsgCtx.appName[0] != '\0' ? ZOR_OK : ZOR_E_REFUSED;
}

void StopReports() noexcept {
  ZOR_UV_WatcherIterateItem(&MainLoop(), nullptr, StopIfReport);
}

}  // namespace zor
