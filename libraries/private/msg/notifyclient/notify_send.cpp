#include <sys/socket.h>
#include <unistd.h>
#include <zor/limits.h>
#include <zor/trace.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/wait.h"
#include "notifyclient/notify_reboot.h"
#include "notifyclient/notify_transfer.h"
#include "trace/trace_line.h"

namespace zor::notify {
namespace {

// Consecutive sends that found the socket not writable. Outlives the client, which a failing process may re-create.
constinit std::uint32_t failureCount;

// Writes the next piece. The notification channel may have been switched to a descriptor that is no socket.
ssize_t WritePiece(int fd, const std::byte *data, std::size_t length) {
  const ssize_t count = ::send(fd, data, length, MSG_NOSIGNAL);
  return count < 0 && errno == ENOTSOCK ? ::write(fd, data, length) : count;
}

std::uint32_t ReportNotWritable(const ZOR_NOTIFY_MSG &msg, WaitResult result) {
  const bool timedOut = result == WaitResult::kTimedOut;
  ++failureCount;
  std::printf("Send notify msg err %d:%d, type=0x%x, src=[%d], dest=[%d], ack=[%d], failed time = [%d]\n",
              timedOut ? 0 : -1, timedOut ? 0 : errno, msg.msg_type, msg.source_id, msg.des_id, msg.ack_tag,
              failureCount);
  return ZOR_NOTIFY_E_NOT_WRITABLE;
}

std::uint32_t ReportWriteError(int fd, const ZOR_NOTIFY_MSG &msg, std::size_t sent, ssize_t result) {
  const auto sentLength = static_cast<std::uint32_t>(sent);
  if (errno == EPIPE) {
    std::printf("notifyclient fail to write notify: fd=%d, data_len=%u, send_len=%u, errno=EPIPE, ret=%d.\n", fd,
                msg.data_len, sentLength, static_cast<int>(result));
    return ZOR_NOTIFY_E_TIMEOUT;
  }
  std::printf("notifyclient fail to write notify: fd=%d, data_len=%u, send_len=%u, errno=%d, ret=%d.\n", fd,
              msg.data_len, sentLength, errno, static_cast<int>(result));
  return ZOR_NOTIFY_E_IO;
}

std::uint32_t WriteAll(int fd, const ZOR_NOTIFY_MSG &msg) {
  const auto *bytes = reinterpret_cast<const std::byte *>(&msg);
  const std::size_t length = ZOR_NOTIFY_HEAD_SIZE + std::size_t{msg.data_len};
  for (std::size_t sent = 0; sent < length;) {
    const ssize_t count = WritePiece(fd, bytes + sent, length - sent);
    if (count >= 0) {
      sent += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {
      WaitWritable(fd, ZOR_NOTIFY_WRITABLE_WAIT_MS);
    } else if (errno != EINTR) {
      return ReportWriteError(fd, msg, sent, count);
    }
  }
  return ZOR_NOTIFY_OK;
}

std::uint32_t ReportFailure(int fd, const ZOR_NOTIFY_MSG &msg, std::uint32_t status) {
  std::printf(
      "notifyclient NotifyMsgSend fail to send, type=0x%x, src=[%d], dest=[%d] seq=%d, sync_tag=%d, "
      "data_len=%d, ulRetVal=%d, fd=%d\n",
      msg.msg_type, msg.source_id, msg.des_id, msg.seq, msg.sync_tag, msg.data_len, status, fd);
  return status;
}

WaitResult AwaitWritable(int fd) {
  WaitResult result;
  do {
    result = WaitWritable(fd, ZOR_NOTIFY_WRITABLE_WAIT_MS);
  } while (result == WaitResult::kInterrupted);
  return result;
}

}  // namespace

NotifyPtr NewMessage(std::uint32_t destination, std::uint32_t type, std::uint64_t dataLength) noexcept {
  NotifyPtr msg(static_cast<ZOR_NOTIFY_MSG *>(GuardedCalloc(ZOR_NOTIFY_HEAD_SIZE + dataLength)));
  if (msg == nullptr) return nullptr;
  {
    const std::lock_guard lock(SendMutex());
    msg->seq = ++g_stClient.sequence;
    msg->source_id = g_stClient.mid;
  }
  msg->msg_type = type;
  msg->des_id = destination;
  msg->ack_tag = ZOR_NOTIFY_ACK_REQUEST;
  msg->data_len = static_cast<std::uint32_t>(dataLength);
  return msg;
}

void PutData(ZOR_NOTIFY_MSG &msg, std::uint32_t offset, const void *data, std::uint32_t length) noexcept {
  if (data != nullptr && length != 0) std::memcpy(DataOf(msg) + offset, data, length);
}

std::uint32_t Send(const ZOR_NOTIFY_MSG &msg) noexcept {
  const std::lock_guard lock(SendMutex());
  const int fd = g_stClient.fd;
  Trace(kTraceModule, ZOR_TRACE_DEBUG,
        "notifyclient NotifyMsgSend, pid:%d, thread id:%d, type=0x%x, src=[%d], dest=[%d] seq=%d, "
        "sync_tag=%d, data_len=%d, fd=%d\n",
        ::getpid(), ::gettid(), msg.msg_type, msg.source_id, msg.des_id, msg.seq, msg.sync_tag, msg.data_len, fd);
  // It is being restored, which no reboot would do sooner.
  if (g_stClient.lost) return ReportFailure(fd, msg, ZOR_NOTIFY_E_TIMEOUT);
  if (failureCount >= ZOR_NOTIFY_FAILURES_MAX) {
    std::printf("error: notifyclient failed more than 10 times, reboot devie!!");
    std::fflush(stdout);  // the device is about to go down
    StartReboot();
  }
  if (const WaitResult result = AwaitWritable(fd); result != WaitResult::kReady) return ReportNotWritable(msg, result);
  if (const std::uint32_t status = WriteAll(fd, msg); status != ZOR_NOTIFY_OK) return ReportFailure(fd, msg, status);
  Trace(kTraceModule, ZOR_TRACE_DEBUG,
        "notifyclient NotifyMsgSend leave, type=0x%x, src=[%d], dest=[%d] seq=%d, sync_tag=%d, "
        "data_len=%d, fd=%d\n",
        msg.msg_type, msg.source_id, msg.des_id, msg.seq, msg.sync_tag, msg.data_len, fd);
  failureCount = 0;
  return ZOR_NOTIFY_OK;
}

std::uint32_t SendRegistration(int fd) noexcept {
  const NotifyPtr msg = NewMessage(ZOR_NOTIFY_MID_SERVER, ZOR_NOTIFY_TYPE_REGISTER, 2 * sizeof(std::uint32_t));
  if (msg == nullptr) return ZOR_NOTIFY_E_NO_MEMORY;
  msg->sub_data_len1 = sizeof msg->source_id;
  msg->sub_data_len2 = sizeof msg->source_id;
  PutData(*msg, 0, &msg->source_id, sizeof msg->source_id);
  const std::uint32_t status = WriteAll(fd, *msg);
  const std::lock_guard lock(SendMutex());
  if (status == ZOR_NOTIFY_OK) failureCount = 0;
  return status;
}

}  // namespace zor::notify
