// A handler may do anything, destroying the client included, which frees the handler entries and the queue. So a
// handler's address is copied out of its entry before the call, and a queue entry is unlinked before its message goes
// out.
#include "notifyclient/notify_dispatch.h"

#include <unistd.h>
#include <zor/trace.h>

#include <cstdio>

#include "base/list.h"
#include "base/wait.h"
#include "notifyclient/notify_rejoin.h"
#include "notifyclient/notify_state.h"
#include "notifyclient/notify_transfer.h"
#include "sdk/loop/lag/lag.h"
#include "trace/trace_line.h"

namespace zor::notify {
namespace {

void *DataOrNull(ZOR_NOTIFY_MSG &msg) {
  return msg.data_len == 0 ? nullptr : DataOf(msg);
}

// The second part, or null. The length of the first part comes from the peer and may point anywhere.
void *SecondPart(ZOR_NOTIFY_MSG &msg) {
  const bool present = msg.sub_data_len2 != 0 && msg.data_len != 0 && msg.sub_data_len1 <= msg.data_len;
  return present ? DataOf(msg) + msg.sub_data_len1 : nullptr;
}

std::uint32_t CallSyncHandler(ZOR_NOTIFY_MSG &msg, void **reply, std::uint32_t *replyLength) {
  const Handler *handler = FindHandler(msg.msg_type);
  if (const auto proc = handler == nullptr ? nullptr : handler->syncProc) {
    const lag::Span span(ZOR_UV_LAG_NOTIFICATION, proc);
    return proc(DataOrNull(msg), reply, replyLength);
  }
  if (const auto proc = g_stClient.defaultSync) {
    const lag::Span span(ZOR_UV_LAG_NOTIFICATION, proc);
    return proc(msg.msg_type, DataOrNull(msg), reply, replyLength);
  }
  return ZOR_NOTIFY_OK;
}

std::uint32_t SendReply(const ZOR_NOTIFY_MSG &request, const void *data, std::uint32_t length) {
  NotifyPtr reply = NewMessage(request.source_id, request.msg_type, length);
  if (reply == nullptr) return ZOR_NOTIFY_E_NO_MEMORY;
  reply->seq = request.seq;
  reply->sync_tag = 1;
  reply->ack_tag = ZOR_NOTIFY_ACK_ANSWER;
  PutData(*reply, 0, data, length);
  return Send(*reply);
}

// A request without a handler is replied to as well, because its sender waits; only the server does not wait.
std::uint32_t DispatchRequest(ZOR_NOTIFY_MSG &msg) {
  void *data = nullptr;
  std::uint32_t length = 0;
  CallSyncHandler(msg, &data, &length);
  const MallocPtr<void> owner(data);
  if (msg.source_id == ZOR_NOTIFY_MID_SERVER) return ZOR_NOTIFY_OK;
  return SendReply(msg, data, data == nullptr ? 0 : length);
}

std::uint32_t DispatchAsync(ZOR_NOTIFY_MSG &msg) {
  const Handler *handler = FindHandler(msg.msg_type);
  if (const auto proc = handler == nullptr ? nullptr : handler->asyncProc) {
    const lag::Span span(ZOR_UV_LAG_NOTIFICATION, proc);
    return proc(DataOrNull(msg), SecondPart(msg));
  }
  if (const auto proc = g_stClient.defaultAsync) {
    const lag::Span span(ZOR_UV_LAG_NOTIFICATION, proc);
    proc(msg.msg_type, DataOrNull(msg), SecondPart(msg), &g_stClient);
  }
  return ZOR_NOTIFY_OK;
}

NotifyPtr PopPending() {
  PendingNotify *entry = g_stClient.pending;
  g_stClient.pending = entry->next;
  const MallocPtr<PendingNotify> owner(entry);
  return NotifyPtr(entry->msg);
}

}  // namespace

void OnReadable(SockBase *, uint32_t) noexcept {
  Trace(kTraceModule, ZOR_TRACE_DEBUG, "NotifyEvtProc \n");
  // The loop may call for a number that was ready under its former owner; receiving would hold it up for minutes.
  if (WaitReadable(g_stClient.fd, 0) == WaitResult::kTimedOut) return;
  NotifyPtr msg;
  const std::uint32_t status = Receive(msg);
  if (status == ZOR_NOTIFY_E_SERVER_GONE) {
    std::printf("error: notify server dead when callback, destory client, my pid=%d!\n", ::getpid());
    OnConnectionEnded();
  }
  if (status == ZOR_NOTIFY_OK) ZOR_NOTIFYCLT_MsgFilterProc(msg.get());
}

void DrainPending(UvIdle *, uint32_t) noexcept {
  std::uint32_t handled = 0;
  while (g_stClient.pending != nullptr) {
    const NotifyPtr msg = PopPending();
    if (msg == nullptr) {
      Trace(kTraceModule, ZOR_TRACE_DEBUG, "msg is NULL, need continue.\n");
      continue;
    }
    Trace(kTraceModule, ZOR_TRACE_DEBUG, "do query msg %x proc.\n", msg->msg_type);
    ZOR_NOTIFYCLT_MsgFilterProc(msg.get());
    ++handled;
  }
  if (handled == 0) return;
  Trace("msg", ZOR_TRACE_INFO, "Clear %d messages in queue finished.\n", handled);
}

}  // namespace zor::notify

uint32_t ZOR_NOTIFYCLT_MsgFilterProc(ZOR_NOTIFY_MSG *msg) {
  using namespace zor::notify;
  if (msg == nullptr) return ZOR_NOTIFY_E_ARGUMENT;
  if (msg->sync_tag == 0) return DispatchAsync(*msg);
  if (msg->sync_tag != 1) return ZOR_NOTIFY_E_ARGUMENT;
  return msg->ack_tag == ZOR_NOTIFY_ACK_REQUEST ? DispatchRequest(*msg) : CallSyncHandler(*msg, nullptr, nullptr);
}
