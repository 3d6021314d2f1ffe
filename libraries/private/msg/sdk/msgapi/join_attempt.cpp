#include "sdk/msgapi/join_attempt.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/msg_bus.h>
#include <zor/msg_dispatch.h>
#include <zor/status.h>
#include <zor/uv_io.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "base/scoped_value.h"
#include "message/header.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/msgapi/body_file.h"
#include "sdk/msgapi/connect.h"
#include "sdk/msgapi/registration.h"

namespace zor {
namespace {

// Collects one message from a socket that is not waited for.
class PartialMessage {
 public:
  enum class State { kIncomplete, kComplete, kFailed };

  State Read(int fd);
  MessagePtr Take() {
    have_ = 0;
    return std::move(block_);
  }

 private:
  bool MakeRoom();
  bool IsComplete() { return have_ >= ZOR_MSG_HEAD_SIZE && have_ == ZOR_MSG_HEAD_SIZE + block_->bodyLength; }
  State Finish() { return bodyInFile_ && RestoreFileBody(block_) != ZOR_OK ? State::kFailed : State::kComplete; }

  MessagePtr block_;
  std::size_t have_ = 0;
  std::size_t room_ = 0;
  bool bodyInFile_ = false;
};

// For the header, and once that is there for the body. The context's byte order is that of the connection that has
// ended; a registration is not swapped.
bool PartialMessage::MakeRoom() {
  if (have_ == 0) {
    block_ = NewMessageBlock(0);
    room_ = ZOR_MSG_HEAD_SIZE;
  } else {
    ZOR_MSG_CTX context = g_stMsgCtx;
    context.flags &= ~ZOR_MSG_FLAG_SWAP;
    bodyInFile_ = FixUpReceivedHeader(*block_, context) != 0;
    if (block_->bodyLength > ZOR_MSG_RECV_BODY_MAX) return false;
    room_ += block_->bodyLength;
    if (block_->bodyLength != 0) block_ = GuardedGrow(std::move(block_), have_, room_);
  }
  return block_ != nullptr;
}

PartialMessage::State PartialMessage::Read(int fd) {
  for (;;) {
    const bool atBody = have_ == ZOR_MSG_HEAD_SIZE && room_ == ZOR_MSG_HEAD_SIZE;
    if ((have_ == 0 || atBody) && !MakeRoom()) return State::kFailed;
    if (IsComplete()) return Finish();
    char *bytes = static_cast<char *>(static_cast<void *>(block_.get()));
    const ssize_t count = ::recv(fd, bytes + have_, room_ - have_, MSG_DONTWAIT);
    if (count > 0) {
      have_ += static_cast<std::size_t>(count);
    } else if (count == 0 || errno != EINTR) {
      return count < 0 && errno == EAGAIN ? State::kIncomplete : State::kFailed;
    }
  }
}

struct Attempt {
  UniqueFd fd;
  UvIO *watcher = nullptr;  // the loop's
  JoinDone done = nullptr;
  pid_t owner = 0;  // a forked child has the descriptor and the watcher too
  PartialMessage message;
};

Attempt &Current() {
  static Attempt attempt;
  return attempt;
}

// The attempt's state, which is idle afterwards; its watcher is off the loop.
Attempt TakeAttempt() {
  Attempt ended = std::exchange(Current(), Attempt());
  if (ended.watcher == nullptr || !IsOnLoop(MainLoop(), &ended.watcher->header)) return ended;
  ZOR_UV_IOStop(ended.watcher, UV_READABLE | UV_WRITABLE);
  ended.watcher->fd = -1;  // the descriptor is not the watcher's
  ZOR_UV_WatcherDelete(&ended.watcher->header);
  return ended;
}

void Finish(MessagePtr reply) {
  Attempt ended = TakeAttempt();
  ended.done(std::move(ended.fd), std::move(reply));
}

std::uint32_t SendRegistration(int fd) {
  const ScopedValue<std::uint32_t> notSwapped(g_stMsgCtx.flags, g_stMsgCtx.flags & ~ZOR_MSG_FLAG_SWAP);
  ZOR_MSG_HEAD request = NewRegistration();
  request.sequence = NextSequence();
  return ZOR_MSG_SendEx(fd, &request);
}

// Only connecting must not wait: sends on the bus socket do.
bool MakeBlocking(int fd) {
  const int flags = ::fcntl(fd, F_GETFL);
  return flags >= 0 && ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

bool Register(int fd) {
  return MakeBlocking(fd) && SendRegistration(fd) == ZOR_OK;
}

// What comes before the reply is dispatched with the messages that were set aside.
void ReadReply() {
  PartialMessage &message = Current().message;
  for (;;) {
    const PartialMessage::State state = message.Read(Current().fd.get());
    if (state == PartialMessage::State::kIncomplete) return;
    if (state == PartialMessage::State::kFailed) return Finish(nullptr);
    MessagePtr received = message.Take();
    if (received->type == ZOR_MSG_REGISTER_APP) return Finish(std::move(received));
    if (ZOR_MSG_QueueAppend(&g_stMsgCtx.pending, received.get()) != ZOR_OK) return Finish(nullptr);
    static_cast<void>(received.release());  // the queue's now
  }
}

// Writable is a connection to another board that is made, or has failed.
void OnEvent(UvIO *watcher, std::uint32_t event) {
  if (Current().owner != ::getpid()) return CancelJoin();
  if (event != UV_WRITABLE) return ReadReply();
  if (IsConnecting(watcher->fd) != false || !Register(watcher->fd)) return Finish(nullptr);
  ZOR_UV_IOStop(watcher, UV_WRITABLE);
  ZOR_UV_IOStart(watcher, UV_READABLE);
}

// The loop owns the record; null when it does not take one.
UvIO *Watch(int fd, std::uint32_t events) {
  MallocPtr<UvIO> watcher = GuardedNew<UvIO>();
  if (watcher == nullptr || ZOR_UV_IOInit(&MainLoop(), watcher.get(), fd, OnEvent) != ZOR_OK) return nullptr;
  ZOR_UV_IOStart(watcher.get(), events);
  return watcher.release();
}

}  // namespace

bool StartJoin(JoinDone done) noexcept {
  UniqueFd fd = ConnectAgain();
  const std::optional<bool> connecting = fd.valid() ? IsConnecting(fd.get()) : std::nullopt;
  if (!connecting || (!*connecting && !Register(fd.get()))) return false;
  Attempt &attempt = Current();
  attempt.watcher = Watch(fd.get(), *connecting ? UV_WRITABLE : UV_READABLE);
  if (attempt.watcher == nullptr) return false;
  attempt.fd = std::move(fd);
  attempt.done = done;
  attempt.owner = ::getpid();
  return true;
}

bool IsJoining() noexcept {
  return Current().done != nullptr;
}

void CancelJoin() noexcept {
  TakeAttempt();
}

}  // namespace zor
