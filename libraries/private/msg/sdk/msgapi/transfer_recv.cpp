#include <sys/socket.h>
#include <unistd.h>
#include <zor/mlog.h>
#include <zor/msg_bus.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <utility>

#include "base/wait.h"
#include "message/context.h"
#include "message/header.h"
#include "sdk/msgapi/body_file.h"
#include "sdk/msgapi/transfer.h"

namespace zor {
namespace {

constexpr std::uint32_t kDefaultWaitMs = 20000;
// The one error of a read that means a lost peer. ECONNRESET does not: it is an ordinary failure.
constexpr int kPeerLostErrno = 131;

// Whether a failed read is to be repeated. A descriptor in non-blocking mode is waited for, not asked again at once.
bool WorthRepeating(int fd) {
  if (errno == EINTR) return true;
  if (errno != EAGAIN) return false;
  WaitReadable(fd, -1);
  return true;
}

std::uint32_t StatusOfRead(ssize_t count) {
  return count == 0 || errno == kPeerLostErrno ? ZOR_E_PEER_GONE : ZOR_E_IO;
}

// One read: a header that comes in pieces is not put together.
std::uint32_t ReadHeader(int fd, ZOR_MSG_HEAD &header) {
  ssize_t count;
  do {
    count = ::read(fd, &header, sizeof header);
  } while (count < 0 && WorthRepeating(fd));
  if (count <= 0) return StatusOfRead(count);
  if (count == static_cast<ssize_t>(sizeof header)) return ZOR_OK;
  const int error = errno;
  std::printf("msgapi fail to read for not a head length, ret=%d, errno=%d, fd=%d, pid=%d\n", static_cast<int>(count),
              error, fd, ::getpid());
  return ZOR_E_IO;
}

// Every read may wait the whole time-out. The bytes nearly always lie there already, so they are taken without a wait
// when that is possible; what is no socket has to be waited for.
std::uint32_t ReadBody(int fd, char *to, std::size_t length, std::uint32_t timeoutMs) {
  while (length > 0) {
    ssize_t count = timeoutMs == 0 ? ::read(fd, to, length) : ::recv(fd, to, length, MSG_DONTWAIT);
    if (count < 0 && timeoutMs != 0 && (errno == EAGAIN || errno == ENOTSOCK)) {
      if (!WaitForInput(fd, timeoutMs)) return ZOR_E_TIMEOUT;
      count = ::read(fd, to, length);
      if (count < 0 && errno == EAGAIN) continue;  // woken in vain
    }
    if (count < 0 && WorthRepeating(fd)) continue;
    if (count <= 0) return StatusOfRead(count);
    to += count;
    length -= static_cast<std::size_t>(count);
  }
  return ZOR_OK;
}

void TraceReceived(const ZOR_MSG_HEAD &header) {
  ZOR_TRACE_PrintInfo("transfer_recv.cpp", __LINE__, 0, "msg", ZOR_TRACE_INFO,
                      "recvd msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s] on board %d with "
                      "flags [0x%x]:%d ...",
                      header.type, g_stMsgCtx.appName, header.data, header.bodyLength, header.destination,
                      header.source, header.type >> ZOR_MSG_BOARD_SHIFT, g_stMsgCtx.flags,
                      header.type & ZOR_MSG_BODY_IN_FILE);
}

void ReportTooLong(const ZOR_MSG_HEAD &header) {
  std::printf("msgapi too large body len, src=%.12s, dest=%.12s, type=0x%x, data_len=%u\n", header.source,
              header.destination, header.type, header.bodyLength);
  mlog_print("msg", ZOR_MLOG_FATAL, "Too long msg:[0x%x] len:[%d].\n", header.type, header.bodyLength);
}

// Reads the body behind a header that has arrived. On failure msg is freed or left to its owner to free.
std::uint32_t ReceiveBody(int fd, MessagePtr &msg, std::uint32_t timeoutMs) {
  const std::uint32_t length = msg->bodyLength;
  if (length == 0) return ZOR_OK;
  if (length > ZOR_MSG_RECV_BODY_MAX) {  // what follows stays in the socket
    ReportTooLong(*msg);
    return ZOR_E_NO_MEMORY;
  }
  msg = GuardedRegrow(std::move(msg), ZOR_MSG_HEAD_SIZE, std::uint64_t{ZOR_MSG_HEAD_SIZE} + length);
  if (msg == nullptr) return ZOR_E_NO_MEMORY;
  return ReadBody(fd, static_cast<char *>(BodyOf(msg.get())), length, timeoutMs);
}

std::uint32_t Receive(int fd, MessagePtr &msg, std::uint32_t timeoutMs, bool convert) {
  if (timeoutMs != 0 && !WaitForInput(fd, timeoutMs)) return ZOR_E_TIMEOUT;
  msg.reset(static_cast<ZOR_MSG_HEAD *>(GuardedCalloc(ZOR_MSG_HEAD_SIZE)));
  if (msg == nullptr) return ZOR_E_NO_MEMORY;
  std::uint32_t status = ReadHeader(fd, *msg);
  if (status != ZOR_OK) return status;
  const bool bodyInFile = convert && FixUpReceivedHeader(*msg, g_stMsgCtx) != 0;
  TraceReceived(*msg);
  status = ReceiveBody(fd, msg, timeoutMs);
  if (status != ZOR_OK) return status;
  return bodyInFile && msg->bodyLength != 0 ? RestoreFileBody(msg) : ZOR_OK;
}

}  // namespace

bool WaitForInput(int fd, std::uint32_t timeoutMs) noexcept {
  const auto limit =
      static_cast<int>(std::min(timeoutMs == 0 ? kDefaultWaitMs : timeoutMs, static_cast<std::uint32_t>(INT_MAX)));
  WaitResult result;
  do {
    result = WaitReadable(fd, limit);
  } while (result == WaitResult::kInterrupted);
  return result != WaitResult::kTimedOut;
}

}  // namespace zor

uint32_t ZOR_MSG_RecvWithEndian(int fd, ZOR_MSG_HEAD **msg, uint32_t timeoutMs, uint32_t convert) {
  if (msg == nullptr || fd < 0) return ZOR_E_ARGUMENT;
  *msg = nullptr;
  zor::MessagePtr received;
  const uint32_t status = zor::Receive(fd, received, timeoutMs, convert != 0);
  if (status == ZOR_OK) *msg = received.release();
  return status;
}

uint32_t ZOR_MSG_Recv(int fd, ZOR_MSG_HEAD **msg, uint32_t timeoutMs) {
  return ZOR_MSG_RecvWithEndian(fd, msg, timeoutMs, 1);
}
