// How a received message is dispatched: the filter traces it and calls the application's message procedure; the default
// procedure runs the handlers of its type in order and sends their replies; what no handler took goes to the first
// built-in rule that applies.
#include <zor/msg_dispatch.h>

#include <zor/msg_bus.h>
#include <zor/sockbase.h>
#include <zor/trace.h>
#include <zor/uv_loop.h>

#include <array>
#include <cstdio>

#include "base/text.h"
#include "message/context.h"
#include "sdk/loop/lag/lag.h"
#include "sdk/msgapi/event_hook.h"
#include "sdk/msgapi/handler_table.h"
#include "sdk/msgapi/safe_exit.h"
#include "trace/message_track.h"
#include "trace/trace_line.h"

namespace zor {
namespace {

constexpr char kTraceLabel[] = "msgapi";

constinit EventProc eventProc = nullptr;

struct BuiltInRule {
  bool (*applies)(const ZOR_MSG_HEAD &msg);
  void (*act)(ZOR_MSG_HEAD &msg);
};

bool IsEvent(const ZOR_MSG_HEAD &msg) {
  const std::uint32_t type = msg.type & ZOR_MSG_TYPE_MASK;
  return type >= ZOR_MSG_EVENT_FIRST && type <= ZOR_MSG_EVENT_LAST;
}

void PassEventOn(ZOR_MSG_HEAD &msg) {
  if (eventProc != nullptr) eventProc(&msg);
}

constexpr std::array kBuiltInRules = {
    BuiltInRule{IsEvent, PassEventOn},
    BuiltInRule{IsSafeExitRequest, SafeExit},
};

void RunBuiltInRule(ZOR_MSG_HEAD &msg) {
  for (const BuiltInRule &rule : kBuiltInRules) {
    if (rule.applies(msg)) return rule.act(msg);
  }
}

void TraceMatch(const HandlerEntry &entry, const ZOR_MSG_HEAD &head) {
  const auto *function = entry.proc != nullptr ? reinterpret_cast<const void *>(entry.proc)
                                               : reinterpret_cast<const void *>(entry.syncProc);
  Trace("msg", ZOR_TRACE_INFO,
        "Match msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s] with function %p "
        "[%s].",
        head.type, g_stMsgCtx.appName, head.data, head.bodyLength, head.destination, head.source, function,
        kTraceLabel);
}

// A handler that writes its reply into the request's own block returns the request, which it does not own.
void SendReply(ZOR_MSG_HEAD *reply, const ZOR_MSG_HEAD *msg, const ZOR_MSG_HEAD &request) {
  MessagePtr owner(reply == msg ? nullptr : reply);
  if (reply == nullptr) return;
  reply->type = request.type;
  CopyName(reply->destination, request.source);
  ZOR_MSG_Send(reply);
}

template <class Handler>
auto Call(Handler handler, ZOR_MSG_HEAD *msg, const ZOR_MSG_HEAD &request) {
  const lag::Span span(ZOR_UV_LAG_HANDLER, handler, &request);
  return handler(msg);
}

// True when at least one handler of the message's type ran. The request is the header as it was before the first.
bool RunHandlers(ZOR_MSG_HEAD *msg, const ZOR_MSG_HEAD &request) {
  bool handled = false;
  const HandlerWalk walk;
  for (const HandlerEntry *entry : walk) {
    if (entry->dead || entry->type != request.type) continue;
    if (entry->proc == nullptr && entry->syncProc == nullptr) continue;
    TraceMatch(*entry, request);
    if (entry->proc != nullptr) Call(entry->proc, msg, request);
    if (entry->syncProc != nullptr && !entry->dead) SendReply(Call(entry->syncProc, msg, request), msg, request);
    handled = true;
  }
  return handled;
}

}  // namespace

void SetEventProc(EventProc proc) noexcept {
  eventProc = proc;
}

}  // namespace zor

void ZOR_MSG_RegisterMsgProc(ZOR_MSG_PROC proc) {
  g_stMsgCtx.messageProc = proc;
}

void ZOR_MSG_MsgFilterProc(ZOR_MSG_HEAD *msg, uint32_t) {
  if (msg == nullptr) return;
  const zor::MessageTrack track(*msg, ZOR_UV_LoopGetCurIdx(nullptr));
  track.Start();
  if (msg->bodyLength > ZOR_MSG_DISPATCH_BODY_MAX) {
    std::printf("[msg] error msg datalen = %d \r\n", static_cast<int>(msg->bodyLength));
    return;
  }
  if (const ZOR_MSG_PROC proc = g_stMsgCtx.messageProc; proc != nullptr) {
    const zor::lag::Span span(ZOR_UV_LAG_PROCEDURE, proc, msg);
    proc(msg, msg->bodyLength);
  }
  track.End();
}

uint32_t ZOR_MSG_GetAndDispatch(void) {
  return ZOR_UTIL_SockBaseStart(0);
}

void ZOR_MSG_DefaultMsgProc(ZOR_MSG_HEAD *msg, uint32_t) {
  if (msg == nullptr) return;
  const ZOR_MSG_HEAD head = *msg;
  const bool handled = zor::RunHandlers(msg, head);
  zor::Trace("msg", ZOR_TRACE_INFO,
             "Process msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s] finished.", head.type,
             g_stMsgCtx.appName, head.data, head.bodyLength, head.destination, head.source);
  if (!handled) zor::RunBuiltInRule(*msg);
}
