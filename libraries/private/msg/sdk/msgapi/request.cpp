// Synchronous requests own the bus socket until they end: they read it themselves, take the first message of the
// awaited type for the reply, and set everything else aside in the pending queue, which the loop drains later. The
// sequence number is not compared, so a late reply to an earlier request of the same type is taken too: daemons rely on
// that.
#include <zor/limits.h>
#include <zor/msg_request.h>

#include <zor/mlog.h>
#include <zor/msg_build.h>
#include <zor/msg_bus.h>
#include <zor/msg_dispatch.h>
#include <zor/status.h>
#include <zor/systime.h>
#include <zor/trace.h>
#include <zor/uv_io.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/scoped_value.h"
#include "base/text.h"
#include "message/context.h"
#include "sdk/msgapi/bus_watcher.h"
#include "trace/trace_line.h"

namespace zor {
namespace {

constexpr std::string_view kMicName = "mic";

struct Awaited {
  std::uint32_t type;
  std::uint32_t sequence;   // for the trace lines only
  const NameField *source;  // null: from anyone
};

bool SameType(std::uint32_t left, std::uint32_t right) {
  return ((left ^ right) & ZOR_MSG_TYPE_MASK) == 0;
}

bool IsFailureNotice(const ZOR_MSG_HEAD &msg, const Awaited &awaited) {
  return SameType(msg.type, ZOR_MSG_SEND_FAILED_NOTICE) && SameType(msg.data, awaited.type);
}

bool IsReply(const ZOR_MSG_HEAD &msg, const Awaited &awaited) {
  if (!SameType(msg.type, awaited.type)) return false;
  return awaited.source == nullptr || NameView(msg.source) == NameView(*awaited.source);
}

// Divides each microsecond value on its own, so the result may be a millisecond off.
std::int64_t ElapsedMs(const ZOR_SYS_TIME &from, const ZOR_SYS_TIME &to) {
  const std::int64_t seconds = std::int64_t{to.seconds} - std::int64_t{from.seconds};
  const std::int64_t elapsed = seconds * 1000 - from.microseconds / 1000 + to.microseconds / 1000;
  return std::max<std::int64_t>(elapsed, 0);
}

// Reads one message and takes the time that this took from what remains. 0 remaining waits without limit.
std::uint32_t ReceiveWithin(std::uint32_t &remainingMs, MessagePtr &message) {
  ZOR_SYS_TIME before;
  ZOR_SYS_TIME after;
  ZOR_MSG_HEAD *received = nullptr;
  ZOR_UTIL_GetSysTime(&before);
  const std::uint32_t status = ZOR_MSG_Recv(g_stMsgCtx.socketFd, &received, remainingMs);
  message.reset(received);
  if (status != ZOR_OK) return status;
  ZOR_UTIL_GetSysTime(&after);
  const std::int64_t elapsed = ElapsedMs(before, after);
  remainingMs = elapsed < remainingMs ? remainingMs - static_cast<std::uint32_t>(elapsed) : 0;
  return ZOR_OK;
}

bool SetAside(MessagePtr message) {
  const ZOR_MSG_HEAD &msg = *message;
  const std::uint32_t status = ZOR_MSG_QueueAppend(&g_stMsgCtx.pending, message.get());
  Trace("msg", ZOR_TRACE_INFO,
        "Backup not matched msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s] return %x.",
        msg.type, g_stMsgCtx.appName, msg.data, msg.bodyLength, msg.destination, msg.source, status);
  if (status != ZOR_OK) return false;
  static_cast<void>(message.release());  // the queue's now
  return true;
}

// Without a time-out the first message decides: nothing remains after it, and a receive of 0 would wait for ever.
std::uint32_t CollectReply(const Awaited &awaited, ZOR_MSG_HEAD *&reply, std::uint32_t remainingMs,
                           std::uint32_t &setAsideCount) {
  do {
    MessagePtr message;
    const std::uint32_t status = ReceiveWithin(remainingMs, message);
    if (status != ZOR_OK) return status;
    if (IsFailureNotice(*message, awaited)) return ZOR_E_PEER_GONE;
    if (IsReply(*message, awaited)) {
      reply = message.release();
      return ZOR_OK;
    }
    if (SetAside(std::move(message))) ++setAsideCount;
  } while (remainingMs != 0 && setAsideCount < ZOR_MSG_SET_ASIDE_MAX);
  return ZOR_E_TIMEOUT;
}

std::uint32_t WaitForReply(const Awaited &awaited, ZOR_MSG_HEAD **reply, std::uint32_t timeoutMs) {
  if (reply == nullptr) return ZOR_E_ARGUMENT;
  *reply = nullptr;
  Trace("track", ZOR_TRACE_INFO, "[start sync %u:0x%x] recv resp msg from [%.12s] now ...", awaited.sequence,
        awaited.type, awaited.source == nullptr ? "" : *awaited.source);
  std::uint32_t setAsideCount = 0;
  const std::uint32_t status = CollectReply(awaited, *reply, timeoutMs, setAsideCount);
  Trace("track", ZOR_TRACE_INFO, "[end sync %u:0x%x] finish resp msg with 0x%x, %d msg queued.", awaited.sequence,
        awaited.type, status, setAsideCount);
  return status;
}

// Callers free the reply whatever the status, so it is cleared before anything is refused.
bool ValidRequest(const ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply) {
  if (reply != nullptr) *reply = nullptr;
  return msg != nullptr && reply != nullptr;
}

bool IsForThisProcess(const ZOR_MSG_HEAD &msg) {
  const std::string_view own = NameView(g_stMsgCtx.appName);
  return msg.type != ZOR_MSG_REGISTER_APP && !own.empty() && NameView(msg.destination) == own;
}

// True for a process that may not wait for replies and is warned when it does.
bool IsUnnamedOrMic() {
  const std::string_view own = NameView(g_stMsgCtx.appName);
  return own.empty() || own == kMicName;
}

// The handler runs here; its reply goes out through the server and comes back to this socket.
std::uint32_t DeliverLocally(ZOR_MSG_HEAD *msg) {
  CopyName(msg->source, g_stMsgCtx.appName);
  ZOR_MSG_MsgFilterProc(msg, msg->bodyLength);
  return ZOR_OK;
}

std::uint32_t SendPastHook(ZOR_MSG_HEAD *msg) {
  const ScopedValue<ZOR_MSG_SEND_HOOK> hookOff(g_pfMsgSendHook, nullptr);
  return ZOR_MSG_Send(msg);
}

std::uint32_t SendRequest(ZOR_MSG_HEAD *msg) {
  if (IsForThisProcess(*msg)) return DeliverLocally(msg);
  if (msg->type != ZOR_MSG_REGISTER_APP && IsUnnamedOrMic()) return SendPastHook(msg);
  return ZOR_MSG_Send(msg);
}

// A warning, not a refusal: the request is sent all the same.
void WarnIfNotAllowed(const ZOR_MSG_HEAD &msg) {
  if (msg.type == ZOR_MSG_REGISTER_APP || !IsUnnamedOrMic()) return;
  mlog_print("msg", ZOR_MLOG_FATAL,
             "Send sync msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s] in mic not allowed.\n",
             msg.type, g_stMsgCtx.appName, msg.data, msg.bodyLength, msg.destination, msg.source);
}

}  // namespace
}  // namespace zor

uint32_t ZOR_MSG_SendAndRecv(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs) {
  if (!zor::ValidRequest(msg, reply)) return ZOR_E_ARGUMENT;
  msg->sequence = zor::NextSequence();
  const uint32_t status = zor::SendRequest(msg);
  if (status != ZOR_OK) return status;
  zor::WarnIfNotAllowed(*msg);
  return ZOR_MSG_RecvResponse(msg, reply, timeoutMs);
}

uint32_t ZOR_MSG_SendAndRecvWithAppName(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs) {
  if (!zor::ValidRequest(msg, reply)) return ZOR_E_ARGUMENT;
  msg->sequence = zor::NextSequence();
  const uint32_t status = zor::IsForThisProcess(*msg) ? zor::DeliverLocally(msg) : ZOR_MSG_Send(msg);
  if (status != ZOR_OK) return status;
  return ZOR_MSG_RecvResponseWithAppName(msg, reply, timeoutMs);
}

uint32_t ZOR_MSG_RecvResponse(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs) {
  if (!zor::ValidRequest(msg, reply)) return ZOR_E_ARGUMENT;
  return zor::WaitForReply({msg->type, msg->sequence, nullptr}, reply, timeoutMs);
}

uint32_t ZOR_MSG_RecvResponseWithAppName(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs) {
  if (!zor::ValidRequest(msg, reply)) return ZOR_E_ARGUMENT;
  return zor::WaitForReply({msg->type, msg->sequence, &msg->destination}, reply, timeoutMs);
}

uint32_t ZOR_MSG_RecvWithType(uint32_t type, ZOR_MSG_HEAD **reply, uint32_t timeoutMs) {
  return zor::WaitForReply({type, 0, nullptr}, reply, timeoutMs);
}

uint32_t ZOR_MSG_AsyncSendAndRecv(ZOR_MSG_HEAD *msg, ZOR_MSG_REPLY_PROC callback, uint32_t timeoutMs, void *replyData) {
  if (msg == nullptr) return ZOR_E_ARGUMENT;
  msg->sequence = zor::NextSequence();
  const uint32_t status = ZOR_MSG_Send(msg);
  if (status != ZOR_OK) return status;
  return ZOR_UV_MsgStartWatcher(zor::LiveBusWatcher(), msg->type, msg->sequence, timeoutMs, replyData, callback);
}

uint32_t ZOR_MSG_SendAndRecvMsgData(const char *destination, uint32_t type, uint32_t dataWord, uint32_t timeoutMs,
                                    uint32_t *replyWord) {
  if (replyWord == nullptr) return ZOR_E_ARGUMENT;
  ZOR_MSG_HEAD request;
  ZOR_MSG_HEAD *received = nullptr;
  ZOR_MSG_SimpleBuilder(&request, destination, type, dataWord);
  const uint32_t status = ZOR_MSG_SendAndRecv(&request, &received, timeoutMs);
  const zor::MessagePtr reply(received);
  if (status != ZOR_OK) return status;
  if (reply == nullptr) return ZOR_E_ARGUMENT;
  *replyWord = reply->data;
  return ZOR_OK;
}
