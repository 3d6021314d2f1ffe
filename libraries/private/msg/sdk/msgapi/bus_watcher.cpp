#include "sdk/msgapi/bus_watcher.h"

#include <zor/msg_dispatch.h>
#include <zor/status.h>
#include <zor/trace.h>
#include <zor/uv_io.h>

#include "message/context.h"
#include "message/header.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/message/msg_watcher.h"
#include "sdk/msgapi/body_file.h"
#include "sdk/msgapi/rejoin.h"
#include "trace/trace_line.h"

namespace zor {
namespace {

std::uint32_t FixUpHeader(ZOR_MSG_HEAD *header, std::uint32_t *bodyInFile) {
  *bodyInFile = FixUpReceivedHeader(*header, g_stMsgCtx);
  Trace("msg", ZOR_TRACE_INFO,
        "recvd msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s] on board %d with "
        "flags 0x%x ...",
        header->type, g_stMsgCtx.appName, header->data, header->bodyLength, header->destination, header->source,
        PeerBoard(g_stMsgCtx), g_stMsgCtx.flags);
  return header->bodyLength;
}

std::uint32_t MatchesRequest(const ZOR_MSG_HEAD *msg, std::uint32_t type, std::uint32_t sequence) {
  return ((msg->type ^ type) & ZOR_MSG_TYPE_MASK) == 0 && msg->sequence == sequence ? 1 : 0;
}

std::uint32_t RestoreBody(ZOR_MSG_HEAD **msg) {
  MessagePtr block(*msg);
  const std::uint32_t status = RestoreFileBody(block);
  *msg = block.release();
  return status;
}

void Dispatch(ZOR_MSG_HEAD *msg) {
  ZOR_MSG_MsgFilterProc(msg, msg->bodyLength);
}

// A socket at end of file stays readable for ever: the loop stops watching it, so that it can sleep. The socket stays
// in the context, and sends keep reporting that the server is gone.
void OnReadable(UvIO *io, std::uint32_t) {
  auto &watcher = RecordOf<UvMsgWatcher>(&io->header);
  bool torn = false;
  const std::uint32_t status = ReadAndDispatchMessage(watcher, torn);
  if (torn) AbandonStream(io->fd);
  if (status != ZOR_E_PEER_GONE) return;
  ZOR_UV_IOStop(io, UV_READABLE);
  OnConnectionEnded(watcher);
}

}  // namespace

std::uint32_t StartBusWatcher(int fd) noexcept {
  MallocPtr<UvMsgWatcher> watcher = GuardedNew<UvMsgWatcher>();
  if (watcher == nullptr) return ZOR_E_NO_MEMORY;
  watcher->headerLength = ZOR_MSG_HEAD_SIZE;
  watcher->getPayloadLength = FixUpHeader;
  watcher->matchReply = MatchesRequest;
  watcher->fixUp = RestoreBody;
  ZOR_UV_MsgInit(&MainLoop(), watcher.get(), fd, Dispatch);
  if (watcher->io.header.loop == nullptr) return ZOR_E_ARGUMENT;
  watcher->io.ioCallback = OnReadable;
  g_stMsgCtx.watcher = watcher.release();  // the loop's from here on
  return ZOR_UV_MsgStart(g_stMsgCtx.watcher);
}

UvMsgWatcher *LiveBusWatcher() noexcept {
  UvMsgWatcher *watcher = g_stMsgCtx.watcher;
  return watcher != nullptr && IsOnLoop(MainLoop(), &watcher->io.header) ? watcher : nullptr;
}

// Not ZOR_UV_MsgDelete, which shuts the connection down: a forked child that leaves the bus must not cut off its
// parent.
void StopBusWatcher() noexcept {
  UvMsgWatcher *watcher = LiveBusWatcher();
  g_stMsgCtx.watcher = nullptr;
  if (watcher == nullptr) return;
  ZOR_UV_IOStop(&watcher->io, UV_READABLE | UV_WRITABLE | UV_EXCEPTIONAL);
  watcher->io.fd = -1;  // the next socket may get the same number
  ZOR_UV_WatcherDelete(&watcher->io.header);
}

}  // namespace zor
