#include "zorctl/copy_stream.h"

#include <sys/socket.h>
#include <zor/msg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zor::ctl {
namespace {

// More than the kernel keeps for a socket, so that one call empties it.
constexpr size_t kBufferSize = size_t{512} * 1024;
static_assert(kBufferSize > ZOR_MSG_HEAD_SIZE + ZOR_MSG_INLINE_BODY_MAX);

// Of the frame that carries a descriptor. Any daemon may send one to a monitor, which has no use for it.
constexpr size_t kDescriptorFrameSize = 2;

}  // namespace

CopyStream::CopyStream(Bus &bus) : bus_(bus), earlier_(bus.TakeSetAside()), buffer_(kBufferSize) {}

void CopyStream::Read(const Deadline &deadline, const Visit &visit) {
  if (!VisitEarlier(visit) || !bus_.AwaitMessage(deadline)) return;
  Fill();
  VisitComplete(visit);
}

bool CopyStream::VisitEarlier(const Visit &visit) {
  while (!earlier_.empty()) {
    const Message message = std::move(earlier_.front());
    earlier_.pop_front();
    ZOR_MSG_HEAD head{};
    head.type = message.type;
    head.sequence = message.sequence;
    head.data = message.data;
    head.bodyLength = static_cast<uint32_t>(message.body.size());
    if (message.fromServer() && !visit(head, message.body)) return false;
  }
  return true;
}

void CopyStream::Fill() {
  std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  iovec room = {buffer_.data() + end_, buffer_.size() - end_};
  msghdr received = {};
  received.msg_iov = &room;
  received.msg_iovlen = 1;
  const ssize_t count = ::recvmsg(g_stMsgCtx.socketFd, &received, MSG_DONTWAIT);
  if (count > 0) {
    end_ += static_cast<size_t>(count);
    // No room was given for a descriptor, so the kernel has closed it; it ends a read behind its frame.
    if ((received.msg_flags & MSG_CTRUNC) != 0) end_ -= std::min(end_, kDescriptorFrameSize);
  } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
    throw ServerGone();
  }
}

// A body in a file is a path, in place: whoever sent that, it is no copy.
bool CopyStream::VisitComplete(const Visit &visit) {
  while (end_ - begin_ >= ZOR_MSG_HEAD_SIZE) {
    ZOR_MSG_HEAD head;
    std::memcpy(&head, buffer_.data() + begin_, sizeof head);
    if (head.bodyLength > ZOR_MSG_INLINE_BODY_MAX) {
      throw Failure(kExitFailure, "the message server sent a malformed message",
                    "use a server and a tool of the same version");
    }
    const size_t size = sizeof head + head.bodyLength;
    if (end_ - begin_ < size) return true;
    const std::string_view body(buffer_.data() + begin_ + sizeof head, head.bodyLength);
    begin_ += size;
    if (head.source[0] == '\0' && !visit(head, body)) return false;
  }
  return true;
}

}  // namespace zor::ctl
