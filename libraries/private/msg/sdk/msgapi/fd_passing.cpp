// Descriptors travel beside a frame of two zero bytes, which is no message: a header read that meets one fails.
#include <sys/socket.h>
#include <zor/msg_build.h>
#include <zor/status.h>

#include <array>
#include <cstring>

#include "common/unique_fd.h"
#include "message/context.h"
#include "sdk/msgapi/rejoin.h"
#include "sdk/msgapi/transfer.h"

namespace {

constexpr size_t kFrameLength = 2;
constexpr size_t kReceiveRoom = 4096;

// Room for one descriptor and no more: in the padding behind it the kernel would install a second one.
constexpr size_t kControlLength = CMSG_LEN(sizeof(int));

// The two bytes and the control message of one transfer.
class FdFrame {
 public:
  FdFrame(void *data, size_t length) noexcept : data_{data, length} {
    msg_.msg_iov = &data_;
    msg_.msg_iovlen = 1;
    msg_.msg_control = control_.data();
    msg_.msg_controllen = kControlLength;
  }
  FdFrame(const FdFrame &) = delete;
  FdFrame &operator=(const FdFrame &) = delete;

  msghdr *get() noexcept { return &msg_; }

  void Attach(int fd) noexcept {
    cmsghdr *control = CMSG_FIRSTHDR(&msg_);
    control->cmsg_len = kControlLength;
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = SCM_RIGHTS;
    std::memcpy(CMSG_DATA(control), &fd, sizeof fd);
  }

  bool HasControl() noexcept {
    const cmsghdr *control = CMSG_FIRSTHDR(&msg_);
    return control != nullptr && control->cmsg_len == kControlLength;
  }

  int Attached() noexcept {
    int fd;
    std::memcpy(&fd, CMSG_DATA(CMSG_FIRSTHDR(&msg_)), sizeof fd);
    return fd;
  }

  // A descriptor beside a frame that is refused has no owner and is closed.
  void CloseAttached() noexcept {
    if (!HasControl()) return;
    const cmsghdr *control = CMSG_FIRSTHDR(&msg_);
    if (control->cmsg_level == SOL_SOCKET && control->cmsg_type == SCM_RIGHTS) zor::UniqueFd(Attached()).reset();
  }

 private:
  iovec data_;
  msghdr msg_ = {};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control_ = {};
};

}  // namespace

uint32_t ZOR_MSG_SendFd(int fd) {
  if (g_stMsgCtx.socketFd < 0) return ZOR_E_NOT_CONNECTED;
  std::array<char, kFrameLength> data = {};
  FdFrame frame(data.data(), data.size());
  frame.Attach(fd);
  const ssize_t count = ::sendmsg(g_stMsgCtx.socketFd, frame.get(), MSG_NOSIGNAL);
  return count == static_cast<ssize_t>(kFrameLength) ? ZOR_OK : ZOR_E_IO;
}

uint32_t ZOR_MSG_RecvFd(int *fd, uint32_t timeoutMs) {
  if (fd == nullptr) return ZOR_E_ARGUMENT;
  const int bus = g_stMsgCtx.socketFd;
  if (bus < 0) return ZOR_E_NOT_CONNECTED;
  if (timeoutMs != 0 && !zor::WaitForInput(bus, timeoutMs)) return ZOR_E_TIMEOUT;
  std::array<char, kReceiveRoom> data;
  FdFrame frame(data.data(), data.size());
  // Once only: a daemon that waits without limit gets out of the wait by a signal.
  const ssize_t count = ::recvmsg(bus, frame.get(), MSG_CMSG_CLOEXEC);
  if (count < 0) return ZOR_E_IO;
  if (count == 0) return ZOR_E_PEER_GONE;
  if (count != static_cast<ssize_t>(kFrameLength) || !frame.HasControl() || data[0] != 0 || data[1] != 0) {
    frame.CloseAttached();
    zor::AbandonStream(bus);
    return ZOR_E_IO;
  }
  *fd = frame.Attached();
  return ZOR_OK;
}
