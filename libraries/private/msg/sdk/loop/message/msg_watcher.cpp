#include "sdk/loop/message/msg_watcher.h"

#include <zor/limits.h>
#include <zor/status.h>

#include <utility>

#include "base/alloc.h"
#include "base/list.h"
#include "base/stream_read.h"
#include "message/reader.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/lag/lag.h"
#include "sdk/loop/timer/timer.h"
#include "trace/message_track.h"

namespace zor {
namespace {

constexpr std::uint32_t kRawChunkSize = 1024;
constexpr std::uint32_t kNoReply = 1;
// Nothing waits for a first byte that is not there: a callback may run for bytes that an earlier callback of the same
// pass has already consumed.
constexpr ReadWaits kHeaderWaits = {0, ZOR_MSG_NEXT_PIECE_WAIT_MS};
constexpr ReadWaits kPayloadWaits = {ZOR_MSG_NEXT_PIECE_WAIT_MS, ZOR_MSG_NEXT_PIECE_WAIT_MS};

// A received block; its length may be less than a bus header's, since the watcher's owner decides what a header is.
struct Received {
  MessagePtr message;
  std::uint64_t length = 0;
};

// Handlers of raw chunks are given no length, so the rest of the block is zero.
std::uint32_t ReadRawChunk(const UvMsgWatcher &watcher, Received &received) {
  received = {MessagePtr(static_cast<ZOR_MSG_HEAD *>(GuardedCalloc(kRawChunkSize))), kRawChunkSize};
  if (received.message == nullptr) return ZOR_E_NO_MEMORY;
  return ReadChunk(watcher.io.fd, received.message.get(), kRawChunkSize);
}

// An owner that fails has freed the message and left null. Its own status is not passed on: it may be one that stands
// for the state of the descriptor here.
std::uint32_t FixUp(const UvMsgWatcher &watcher, Received &received) {
  ZOR_MSG_HEAD *message = received.message.release();
  const std::uint32_t status = watcher.fixUp(&message);
  received.message.reset(message);
  return status == ZOR_OK && message != nullptr ? ZOR_OK : ZOR_E_IO;
}

std::uint32_t ReadWholeMessage(const UvMsgWatcher &watcher, Received &received, bool &torn) {
  if (watcher.headerLength == 0 || watcher.getPayloadLength == nullptr) return ZOR_E_IO;
  MessageReader reader(watcher.io.fd, {watcher.headerLength, true, kHeaderWaits, kPayloadWaits});
  std::uint32_t status = reader.ReadHeader();
  torn = reader.torn();
  if (status != ZOR_OK) return status;
  std::uint32_t needsFixUp = 0;
  const std::uint32_t payloadLength = watcher.getPayloadLength(reader.message(), &needsFixUp);
  status = reader.ReadPayload(payloadLength);
  torn = reader.torn();
  if (status != ZOR_OK) return status;
  received = {reader.Take(), reader.length()};
  return payloadLength != 0 && needsFixUp != 0 && watcher.fixUp != nullptr ? FixUp(watcher, received) : ZOR_OK;
}

// Takes the record off its watcher and stops its guard. This comes before its callback: a loop run from inside the
// callback must neither match the record again nor fire its guard.
MallocPtr<UvPendingReply> TakeOff(UvPendingReply *record) {
  if (record->watcher != nullptr) Unlink(record->watcher->pending, record);
  ZOR_UTIL_TimerDel(record->timer);
  record->timer = nullptr;
  return MallocPtr<UvPendingReply>(record);
}

void DeliverReply(UvPendingReply *waiting, const Received &received) {
  const MallocPtr<UvPendingReply> record = TakeOff(waiting);
  if (record->replyCallback == nullptr) return;
  const MessageTrack track(*received.message, ZOR_UV_LoopGetCurIdx(nullptr), static_cast<std::size_t>(received.length));
  track.Start();
  const bool whole = received.length >= sizeof(ZOR_MSG_HEAD);
  {
    const lag::Span span(ZOR_UV_LAG_REPLY, record->replyCallback, whole ? received.message.get() : nullptr);
    record->replyCallback(received.message.get(), ZOR_OK, record->replyData);
  }
  track.End();
}

// Touches nothing of the watcher after a handler: it may have been deleted.
void Dispatch(UvMsgWatcher &watcher, const Received &received) {
  ZOR_MSG_HEAD *message = received.message.get();
  if (watcher.matchReply != nullptr) {
    UvPendingReply *waiting = Find(watcher.pending, [&](const UvPendingReply &record) {
      return watcher.matchReply(message, record.key1, record.key2) != 0;
    });
    if (waiting != nullptr) return DeliverReply(waiting, received);
  }
  if (watcher.defaultHandler != nullptr) watcher.defaultHandler(message);
}

// The end of file is silent too, and the loop calls again: only the watcher's owner knows what its loss means.
void OnReadable(UvIO *watcher, std::uint32_t) {
  bool torn = false;
  ReadAndDispatchMessage(RecordOf<UvMsgWatcher>(&watcher->header), torn);
}

void EndRequest(UvPendingReply *waiting, std::uint32_t status) {
  const MallocPtr<UvPendingReply> record = TakeOff(waiting);
  if (record->replyCallback == nullptr) return;
  const lag::Span span(ZOR_UV_LAG_REPLY, record->replyCallback);
  record->replyCallback(nullptr, status, record->replyData);
}

void OnNoReply(void *data) {
  EndRequest(static_cast<UvPendingReply *>(data), kNoReply);
}

// For a watcher that is freed before its replies have come. The guards of the requests still call back, once each, and
// must not look for the watcher then; a request without a guard ends here.
void LeavePendingReplies(UvMsgWatcher &watcher) {
  for (UvPendingReply *record : ListView<UvPendingReply>(watcher.pending)) {
    record->watcher = nullptr;
    if (record->timer == nullptr) TakeOff(record);
  }
  watcher.pending = nullptr;
}

// A guard that leaves its loop without having fired, because the loop is destroyed, ends its request. Nothing is
// called.
void OnUnlink(UvWatcher &watcher) noexcept {
  if ((watcher.flags & UV_WATCHER_MSG) != 0) LeavePendingReplies(RecordOf<UvMsgWatcher>(&watcher));
  if ((watcher.flags & UV_WATCHER_TIMER) == 0) return;
  if (RecordOf<UvTimer>(&watcher).callback == OnNoReply) TakeOff(static_cast<UvPendingReply *>(watcher.data));
}

// The guard lives on the loop of its watcher: the default loop may be a passing one, whose end frees its timers.
UvTimer *StartGuard(UvPendingReply &record, std::uint32_t timeoutMs) {
  return AddTimer(record.watcher->io.header.loop, timeoutMs, 1, OnNoReply, &record);
}

UvIO *IoOf(UvMsgWatcher *watcher) {
  return watcher == nullptr ? nullptr : &watcher->io;
}

}  // namespace

std::uint32_t ReadAndDispatchMessage(UvMsgWatcher &watcher, bool &torn) noexcept {
  Received received;
  const bool raw = (watcher.io.header.flags & UV_WATCHER_RAW) != 0;
  const std::uint32_t status = raw ? ReadRawChunk(watcher, received) : ReadWholeMessage(watcher, received, torn);
  if (status == ZOR_OK) Dispatch(watcher, received);
  return status;
}

// Counting first leaves out requests that the callbacks add.
void EndPendingReplies(UvMsgWatcher &watcher, std::uint32_t status) noexcept {
  std::uint32_t left = ZOR_UTIL_ListGetCount(&watcher.pending);
  for (; left != 0 && watcher.pending != nullptr; --left) {
    EndRequest(watcher.pending, status);  // NOLINT(clang-analyzer-unix.Malloc): off the list before it is freed
  }
}

}  // namespace zor

void ZOR_UV_MsgInit(UvLoop *loop, UvMsgWatcher *watcher, int32_t fd, UV_MSG_HANDLER defaultHandler) {
  if (ZOR_UV_IOInit(loop, zor::IoOf(watcher), fd, zor::OnReadable) != ZOR_OK) return;
  zor::SetUnlinkHook(zor::OnUnlink);
  watcher->io.header.flags |= UV_WATCHER_MSG;
  watcher->defaultHandler = defaultHandler;
  watcher->pending = nullptr;
}

uint32_t ZOR_UV_MsgStart(UvMsgWatcher *watcher) {
  return ZOR_UV_IOStart(zor::IoOf(watcher), UV_READABLE);
}

uint32_t ZOR_UV_MsgDelete(UvMsgWatcher *watcher) {
  return ZOR_UV_IODelete(zor::IoOf(watcher));
}

uint32_t ZOR_UV_MsgStartWatcher(UvMsgWatcher *watcher, uint32_t key1, uint32_t key2, uint32_t timeoutMs,
                                void *replyData, UV_MSG_REPLY replyCallback) {
  if (watcher == nullptr || replyCallback == nullptr) return ZOR_E_IO;
  zor::MallocPtr<UvPendingReply> record = zor::GuardedNew<UvPendingReply>();
  if (record == nullptr) return ZOR_E_NO_MEMORY;
  record->key1 = key1;
  record->key2 = key2;
  record->replyData = replyData;
  record->replyCallback = replyCallback;
  record->watcher = watcher;
  record->timer = zor::StartGuard(*record, timeoutMs);  // without one the request waits for its reply without limit
  zor::Append(watcher->pending, record.release());
  return ZOR_OK;
}
