#include <sys/socket.h>
#include <unistd.h>
#include <zor/limits.h>
#include <zor/mlog.h>
#include <zor/msg_bus.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/text.h"
#include "base/wait.h"
#include "message/context.h"
#include "message/header.h"
#include "sdk/msgapi/body_file.h"
#include "sdk/msgapi/rejoin.h"
#include "sdk/msgapi/standing.h"
#include "sdk/msgapi/transfer.h"
#include "trace/trace_line.h"

ZOR_MSG_SEND_HOOK g_pfMsgSendHook = nullptr;

namespace zor {
namespace {

// The destination of a write.
struct Target {
  int fd;
  const sockaddr *address;
  socklen_t addressLength;
};

// The number of bytes taken, or the negated errno.
ssize_t Write(const Target &to, const char *from, std::size_t length, int flags) {
  const ssize_t count = ::sendto(to.fd, from, length, flags | MSG_NOSIGNAL, to.address, to.addressLength);
  return count >= 0 ? count : -errno;
}

std::uint32_t AwaitWritable(const Target &to, const ZOR_MSG_HEAD &header) {
  WaitResult result;
  do {
    result = WaitWritable(to.fd, ZOR_MSG_WRITABLE_WAIT_MS);
  } while (result == WaitResult::kInterrupted);
  if (result == WaitResult::kReady) return ZOR_OK;
  const int error = errno;
  mlog_print("msg", ZOR_MLOG_FATAL,
             "Send msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s] with fd [%d] select with "
             "errno [%d].\n",
             header.type, g_stMsgCtx.appName, header.data, header.bodyLength, header.destination, header.source, to.fd,
             error);
  return ZOR_E_NOT_WRITABLE;
}

void TraceSend(const ZOR_MSG_HEAD &header) {
  Trace("msg", ZOR_TRACE_INFO,
        "Send msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s] on board [%d] ...", header.type,
        g_stMsgCtx.appName, header.data, header.bodyLength, header.destination, header.source, OwnBoard(g_stMsgCtx));
}

void LogWriteError(const ZOR_MSG_HEAD &header, int error) {
  mlog_print("msg", ZOR_MLOG_FATAL,
             "Send msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s] on board [%d] return "
             "err:[%d].\n",
             header.type, g_stMsgCtx.appName, header.data, header.bodyLength, header.destination, header.source,
             OwnBoard(g_stMsgCtx), error);
}

// Writes what is left after a first write that gave the result `count`.
std::uint32_t WriteRest(const Target &to, const char *bytes, std::size_t length, ssize_t count,
                        const ZOR_MSG_HEAD &header) {
  for (std::size_t done = 0;; count = Write(to, bytes + done, length - done, 0)) {
    if (count >= 0) {
      done += static_cast<std::size_t>(count);
      if (done >= length) return ZOR_OK;
      continue;
    }
    if (count == -EPIPE) return ZOR_E_PEER_GONE;
    LogWriteError(header, static_cast<int>(-count));
    if (count == -EINTR || count == -EAGAIN) continue;
    if (done > 0) AbandonStream(to.fd);
    return ZOR_E_IO;
  }
}

// Writes a whole block. A descriptor that was not waited for is tried first: it is nearly always writable, and only
// one that is not, or that is not open, is waited for.
std::uint32_t Transmit(const Target &to, ZOR_MSG_HEAD &block, bool waited) {
  const ZOR_MSG_HEAD header = block;
  const auto *bytes = reinterpret_cast<const char *>(&block);
  const std::size_t length = std::size_t{ZOR_MSG_HEAD_SIZE} + header.bodyLength;
  OutgoingHeader wire(block, g_stMsgCtx);
  ssize_t count = Write(to, bytes, length, waited ? 0 : MSG_DONTWAIT);
  if (!waited && (count == -EAGAIN || count == -EBADF)) {
    const std::uint32_t status = AwaitWritable(to, header);
    if (status != ZOR_OK) {
      wire.Cancel();
      return status;
    }
    count = Write(to, bytes, length, 0);
  }
  TraceSend(header);
  return WriteRest(to, bytes, length, count, header);
}

std::uint32_t SendByFile(const Target &to, const ZOR_MSG_HEAD &header, const void *body) {
  std::uint32_t status = AwaitWritable(to, header);  // first: an unwritable socket leaves no file
  if (status != ZOR_OK) return status;
  MessagePtr block;
  status = MoveBodyToFile(header, body, block);
  if (status != ZOR_OK) return status;
  status = Transmit(to, *block, true);
  if (status != ZOR_OK) RemoveBodyFile(*block);
  return status;
}

bool IsAligned(const ZOR_MSG_HEAD *msg) {
  return reinterpret_cast<std::uintptr_t>(msg) % alignof(ZOR_MSG_HEAD) == 0;
}

// A block in an unaligned buffer is sent from a copy; its header is then as that send left the copy's.
template <class Send>
std::uint32_t SendAlignedCopy(ZOR_MSG_HEAD *msg, Send send) {
  const std::uint64_t bodyLength = HeaderAt(msg).bodyLength;
  const MessagePtr copy = NewMessageBlock(bodyLength);
  if (copy == nullptr) return ZOR_E_NO_MEMORY;
  std::memcpy(static_cast<void *>(copy.get()), static_cast<const void *>(msg),
              static_cast<std::size_t>(ZOR_MSG_HEAD_SIZE + bodyLength));
  const std::uint32_t status = send(copy.get());
  StoreHeader(msg, *copy);
  return status;
}

// A hook sees whole messages, and what cannot be sent is refused where all messages are.
bool GoesStraightToFile(const ZOR_MSG_HEAD &header) {
  return header.bodyLength > ZOR_MSG_INLINE_BODY_MAX && header.bodyLength <= ZOR_ALLOC_MAX - ZOR_MSG_HEAD_SIZE &&
         g_pfMsgSendHook == nullptr && g_stMsgCtx.socketFd >= 0;
}

}  // namespace

std::uint32_t SendParts(const ZOR_MSG_HEAD &header, const void *body) noexcept {
  if (GoesStraightToFile(header)) {
    ZOR_MSG_HEAD own = header;
    CopyName(own.source, g_stMsgCtx.appName);
    const std::uint32_t status = SendByFile({g_stMsgCtx.socketFd, nullptr, 0}, own, body);
    if (status == ZOR_OK) NoteSent(own, body);
    return status;
  }
  const MessagePtr msg = NewMessageBlock(header.bodyLength);
  if (msg == nullptr) return ZOR_E_NO_MEMORY;
  *msg = header;
  std::memcpy(BodyOf(msg.get()), body, header.bodyLength);
  return ZOR_MSG_Send(msg.get());
}

}  // namespace zor

uint32_t ZOR_MSG_Send(ZOR_MSG_HEAD *msg) {
  if (msg == nullptr) return ZOR_E_ARGUMENT;
  if (!zor::IsAligned(msg)) return zor::SendAlignedCopy(msg, ZOR_MSG_Send);
  const int fd = g_stMsgCtx.socketFd;
  if (fd < 0) {
    zor::Trace("msg", ZOR_TRACE_INFO, "msgapi fail to send, fd=%d not init, pid=%d\n", fd, ::getpid());
    return ZOR_E_NOT_CONNECTED;
  }
  zor::CopyName(msg->source, g_stMsgCtx.appName);
  const uint32_t status = ZOR_MSG_SendEx(fd, msg);
  if (status == ZOR_OK) zor::NoteSent(*msg, zor::BodyOf(msg));
  return status;
}

uint32_t ZOR_MSG_SendEx(int fd, ZOR_MSG_HEAD *msg) {
  if (g_pfMsgSendHook != nullptr) {
    int handled = 0;
    const uint32_t status = g_pfMsgSendHook(msg, &handled, &fd);
    if (handled != 0) return status;
  }
  return ZOR_MSG_SendTo(fd, msg, nullptr, 0);
}

uint32_t ZOR_MSG_SendTo(int fd, ZOR_MSG_HEAD *msg, const struct sockaddr *address, uint32_t addressLength) {
  if (msg == nullptr || fd < 0) return ZOR_E_ARGUMENT;
  if (!zor::IsAligned(msg)) {
    return zor::SendAlignedCopy(msg,
                                [&](ZOR_MSG_HEAD *copy) { return ZOR_MSG_SendTo(fd, copy, address, addressLength); });
  }
  const zor::Target to = {fd, address, addressLength};
  return msg->bodyLength > ZOR_MSG_INLINE_BODY_MAX ? zor::SendByFile(to, *msg, zor::BodyOf(msg))
                                                   : zor::Transmit(to, *msg, false);
}

uint32_t ZOR_MSG_SendRealTimeMsg(void *) {
  return ZOR_OK;
}
