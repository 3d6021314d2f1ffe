#include <unistd.h>
#include <zor/limits.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/stream_read.h"
#include "base/wait.h"
#include "notifyclient/notify_transfer.h"
#include "trace/trace_line.h"

namespace zor::notify {
namespace {

// Waits for the next piece, each wait with the full limit. False after a time-out. A wait that fails for good counts
// as ready, because the read that follows reports what is wrong.
bool AwaitPiece(int fd) {
  WaitResult result;
  do {
    result = WaitReadable(fd, static_cast<int>(ZOR_NOTIFY_ANSWER_WAIT_MS));
  } while (result == WaitResult::kInterrupted);
  if (result != WaitResult::kTimedOut) return true;
  std::printf("notifyclient: timeout to wait data when recv, timeout=%u, pid=%d", ZOR_NOTIFY_ANSWER_WAIT_MS,
              ::getpid());
  return false;
}

// One read of at most length bytes. Returns 0 or ZOR_NOTIFY_E_TIMEOUT; count is what read returned, with its errno.
std::uint32_t ReadPiece(int fd, void *buffer, std::size_t length, ssize_t &count) {
  do {
    if (!AwaitPiece(fd)) return ZOR_NOTIFY_E_TIMEOUT;
    errno = 0;
    count = ::read(fd, buffer, length);
  } while (count < 0 && (errno == EINTR || errno == EAGAIN));
  return ZOR_NOTIFY_OK;
}

bool IsPeerDead(ssize_t count) {
  return count <= 0 && StatusOfFailedRead(count) == ZOR_E_PEER_GONE;
}

std::uint32_t ReadHead(int fd, ZOR_NOTIFY_MSG &head) {
  ssize_t count;
  if (const std::uint32_t status = ReadPiece(fd, &head, sizeof head, count); status != ZOR_NOTIFY_OK) return status;
  const int result = static_cast<int>(count);
  if (IsPeerDead(count)) {
    std::printf("error: notifyclient peer dead when read head, my pid=%d, errno=%d, ret=%d!\n", ::getpid(), errno,
                result);
    return ZOR_NOTIFY_E_SERVER_GONE;
  }
  if (count < 0) {
    std::printf("error: notifyclient fail to read head, my pid=%d, errno=%d, ret=%d!\n", ::getpid(), errno, result);
    return ZOR_NOTIFY_E_IO;
  }
  if (result == static_cast<int>(sizeof head)) return ZOR_NOTIFY_OK;
  // The rest of a torn header is not read on: the stream is lost either way.
  std::printf("ooo: notifyclient no match head len, my pid=%d, got len=%d!\n", ::getpid(), result);
  return ZOR_NOTIFY_E_IO;
}

// The whole message in one zeroed block, a NUL behind its data; null without memory.
NotifyPtr WithRoomForData(const ZOR_NOTIFY_MSG &head) {
  NotifyPtr whole(
      static_cast<ZOR_NOTIFY_MSG *>(GuardedCalloc(ZOR_NOTIFY_HEAD_SIZE + std::uint64_t{head.data_len} + 1)));
  if (whole == nullptr) {
    Trace(kTraceModule, ZOR_TRACE_DEBUG, "realloc failed in NotifyMsgRecv.\n");
  } else {
    std::memcpy(whole.get(), &head, sizeof head);
  }
  return whole;
}

std::uint32_t ReadData(int fd, ZOR_NOTIFY_MSG &msg) {
  for (std::uint32_t received = 0; received < msg.data_len;) {
    ssize_t count;
    const std::uint32_t status = ReadPiece(fd, DataOf(msg) + received, msg.data_len - received, count);
    if (status != ZOR_NOTIFY_OK) return status;
    const int result = static_cast<int>(count);
    if (IsPeerDead(count)) {
      std::printf("error: notifyclient peer dead when read body, my pid=%d, errno=%d, ret=%d!\n", ::getpid(), errno,
                  result);
      return ZOR_NOTIFY_E_SERVER_GONE;
    }
    if (count < 0) {
      std::printf(
          "error: notifyclient fail to read body, my pid=%d, errno=%d, ret=%d,msg type=0x%x, src=%u, dest=%u!\n",
          ::getpid(), errno, result, msg.msg_type, msg.source_id, msg.des_id);
      return ZOR_NOTIFY_E_IO;
    }
    // Said of every piece that is not the whole data, the last one of several included.
    if (static_cast<std::uint32_t>(count) < msg.data_len) {
      std::printf(
          "ooo: notifyclient no match body len, my pid=%d, want len=%d, got len=%d, msg type=0x%x, src=%u, "
          "dest=%u!\n",
          ::getpid(), msg.data_len, result, msg.msg_type, msg.source_id, msg.des_id);
    }
    received += static_cast<std::uint32_t>(count);
  }
  return ZOR_NOTIFY_OK;
}

}  // namespace

std::uint32_t Receive(NotifyPtr &msg) noexcept {
  const int fd = g_stClient.fd;
  auto whole = GuardedNew<ZOR_NOTIFY_MSG>();
  if (whole == nullptr) {
    Trace(kTraceModule, ZOR_TRACE_DEBUG, "malloc msg header failed.\n");
    return ZOR_NOTIFY_E_NO_MEMORY;
  }
  if (const std::uint32_t status = ReadHead(fd, *whole); status != ZOR_NOTIFY_OK) return status;
  Trace(kTraceModule, ZOR_TRACE_DEBUG,
        "notifyclient NotifyMsgRecv(): pstMsg->source_id=%d, pstMsg->des_id=%d, pstMsg->msg_type=%d, "
        "pstMsg->data_len=%d, pstMsg->ack_tag=%d, pstMsg->sync_tag=%d, pstMsg->sub_data_len1=%d, "
        "pstMsg->sub_data_len2=%d\n",
        whole->source_id, whole->des_id, whole->msg_type, whole->data_len, whole->ack_tag, whole->sync_tag,
        whole->sub_data_len1, whole->sub_data_len2);
  if (whole->data_len > ZOR_NOTIFY_DATA_MAX) {
    std::printf("ooo notifyclient data Length too long: %x, msg %x from %d to %d.\n", whole->data_len, whole->msg_type,
                whole->source_id, whole->des_id);
    return ZOR_NOTIFY_E_NO_MEMORY;
  }
  if (whole->data_len != 0) {
    whole = WithRoomForData(*whole);
    if (whole == nullptr) return ZOR_NOTIFY_E_NO_MEMORY;
    if (const std::uint32_t status = ReadData(fd, *whole); status != ZOR_NOTIFY_OK) return status;
  }
  msg = std::move(whole);
  return ZOR_NOTIFY_OK;
}

}  // namespace zor::notify
