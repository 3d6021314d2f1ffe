// Replies are matched here by type, sequence number and sender, because the library's own wait takes any reply of the
// type. What else arrives during a wait goes into the library's queue, from which the loop dispatches it; descriptors,
// which travel between messages, are kept until somebody asks for them.
#include "native.h"

#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>
#include <zor/event.h>
#include <zor/limits.h>
#include <zor/msg.h>
#include <zor/notifyclt.h>
#include <zor/uv.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <vector>

#include "common/malloc_ptr.h"
#include "common/unique_fd.h"
#include "loop_descriptor.h"

namespace {

constexpr std::size_t kDescriptorFrame = 2;
constexpr std::size_t kDescriptorsMax = 64;
constexpr std::size_t kSetAsideMax = 10000;
constexpr std::uint32_t kPassTurnsMax = 32;

std::deque<zor::UniqueFd> descriptors;
UvIdle *passHook = nullptr;

// The pass in progress. Its first turn looks at what is ready, and so does each one after a message; then it stops.
struct Pass {
  bool active = false;
  bool progress = false;
  std::uint32_t turns = 0;
};
Pass pass;

void OnTurn(UvIdle *, std::uint32_t) {
  if (!pass.active) return;
  const bool look = pass.turns == 0 || (pass.progress && pass.turns < kPassTurnsMax);
  ++pass.turns;
  pass.progress = false;
  constexpr UvTime kNow = {0, 0};
  if (look) return ZOR_UV_LoopUpdateSelectTimeout(nullptr, &kNow);
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

// A run inside a handler is not the pass that called the handler.
class PassScope {
 public:
  explicit PassScope(bool active) : outer_(pass) { pass = {active, false, 0}; }
  PassScope(const PassScope &) = delete;
  PassScope &operator=(const PassScope &) = delete;
  ~PassScope() {
    pass = outer_;
    pass.progress = true;
  }

 private:
  Pass outer_;
};

void OnMessage(ZOR_MSG_HEAD *msg, std::uint32_t bodyLength) {
  pass.progress = true;
  std::array<char, ZOR_MSG_NAME_SIZE + 1> source = {};
  std::memcpy(source.data(), msg->source, ZOR_MSG_NAME_SIZE);
  zor_py_on_message(msg->type & ZOR_MSG_TYPE_MASK, msg->sequence, msg->data, source.data(),
                    reinterpret_cast<char *>(msg + 1), bodyLength);
}

void OnLink(std::uint32_t event, void *) {
  pass.progress = true;
  zor::py::ForgetDescriptors();
  zor_py_on_link(event);
}

void OnTimer(void *id) {
  pass.progress = true;
  zor_py_on_timer(reinterpret_cast<std::uintptr_t>(id));
}

void OnReadable(UvIO *watcher, std::uint32_t) {
  pass.progress = true;
  zor_py_on_readable(reinterpret_cast<std::uintptr_t>(watcher->header.data));
}

void OnLimit(void *) {
  zor_py_stop();
}

std::int64_t NowMs() {
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

enum class Next { kNothing, kMessage, kDescriptor, kEnd };

// What the socket has. A header that has only partly arrived is left there: the library would take it for a torn one.
Next Look(int fd, int timeoutMs) {
  pollfd wait = {fd, POLLIN, 0};
  if (::poll(&wait, 1, timeoutMs) <= 0) return Next::kNothing;
  std::array<char, ZOR_MSG_HEAD_SIZE> start;
  const ssize_t count = ::recv(fd, start.data(), start.size(), MSG_PEEK | MSG_DONTWAIT);
  if (count == static_cast<ssize_t>(start.size())) return Next::kMessage;
  if (count == 0) return Next::kEnd;
  if (count < 0) return errno == EAGAIN || errno == EINTR ? Next::kNothing : Next::kEnd;
  if (count == static_cast<ssize_t>(kDescriptorFrame) && start[0] == 0 && start[1] == 0) return Next::kDescriptor;
  ::usleep(200);
  return Next::kNothing;
}

std::uint32_t KeepDescriptor() {
  int fd = -1;
  const std::uint32_t status = ZOR_MSG_RecvFd(&fd, 0);
  if (status != ZOR_OK) return status;
  // Nobody has asked for more: whoever sends without end must not use up this process's descriptors.
  zor::UniqueFd descriptor(fd);
  if (descriptors.size() < kDescriptorsMax) descriptors.push_back(std::move(descriptor));
  return status;
}

std::uint32_t SetAside(zor::MallocPtr<ZOR_MSG_HEAD> msg) {
  const std::uint32_t status = ZOR_MSG_QueueAppend(&g_stMsgCtx.pending, msg.get());
  if (status == ZOR_OK) static_cast<void>(msg.release());  // the queue's now
  return status;
}

bool IsFrom(const ZOR_MSG_HEAD &msg, const char *source) {
  return *source == '\0' || std::strncmp(msg.source, source, ZOR_MSG_NAME_SIZE) == 0;
}

// Reads whatever is next; a message comes out of it, or nothing with a status.
zor::MallocPtr<ZOR_MSG_HEAD> ReadNext(std::int64_t endMs, std::uint32_t &status) {
  const int fd = g_stMsgCtx.socketFd;
  status = ZOR_E_NOT_CONNECTED;
  if (fd < 0) return nullptr;
  const std::int64_t left = endMs - NowMs();
  ZOR_MSG_HEAD *msg = nullptr;
  switch (Look(fd, left > 0 ? static_cast<int>(left) : 0)) {
    case Next::kNothing:
      status = ZOR_PY_AGAIN;
      break;
    case Next::kMessage:
      status = ZOR_MSG_Recv(fd, &msg, 0);
      break;
    case Next::kDescriptor:
      status = KeepDescriptor();
      break;
    case Next::kEnd:
      status = ZOR_E_PEER_GONE;
      break;
  }
  return zor::MallocPtr<ZOR_MSG_HEAD>(msg);
}

}  // namespace

uint32_t zor_py_open(const char *name, int rejoin) {
  const uint32_t status = ZOR_MSG_Init(name);
  if (status != ZOR_OK) return status;
  if (g_stMsgCtx.socketFd < 0 || std::strcmp(g_stMsgCtx.appName, name) != 0) return ZOR_E_REFUSED;
  // Numbers that no earlier process of the name, and hardly a peer that asks this one, uses at the same time.
  uint32_t first = 0;
  if (::getrandom(&first, sizeof first, 0) == static_cast<ssize_t>(sizeof first)) g_stMsgCtx.sequence = first;
  ZOR_MSG_RegisterMsgProc(OnMessage);
  ZOR_MSG_SetLinkProc(OnLink, nullptr);
  return rejoin != 0 ? ZOR_MSG_EnableRejoin(nullptr) : ZOR_OK;
}

void zor_py_close(void) {
  zor::py::CloseDescriptor();
  descriptors.clear();
  ZOR_MSG_Destroy();
  ZOR_NOTIFYCLT_Destroy();
}

void zor_py_forget(void) {
  zor::py::CloseDescriptor();
  descriptors.clear();
  ZOR_MSG_Destroy();
  ZOR_NOTIFYCLT_SwitchSock(-1);  // Destroy would shut the parent's connection down
  ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());
  passHook = nullptr;
  pass = {};
}

uint32_t zor_py_send(const char *destination, uint32_t type, uint32_t word, uint32_t sequence, const char *body,
                     uint32_t length) {
  return ZOR_MSG_SendMsgDataWithDataSeq(destination, type, length == 0 ? nullptr : body, length, word, sequence);
}

uint32_t zor_py_next(void) {
  return ++g_stMsgCtx.sequence;
}

ZOR_MSG_HEAD *zor_py_await(const char *source, uint32_t type, uint32_t sequence, uint32_t sliceMs, uint32_t *status) {
  const std::int64_t end = NowMs() + sliceMs;
  for (std::size_t setAside = 0; setAside < kSetAsideMax;) {
    auto msg = ReadNext(end, *status);
    if (*status != ZOR_OK) return nullptr;
    if (msg == nullptr) continue;
    const std::uint32_t received = msg->type & ZOR_MSG_TYPE_MASK;
    if (msg->sequence == sequence) {
      if (received == type && IsFrom(*msg, source)) return msg.release();
      const bool absent = received == ZOR_MSG_SEND_FAILED_NOTICE && (msg->data & ZOR_MSG_TYPE_MASK) == type;
      if (absent) *status = ZOR_E_PEER_GONE;
      if (absent) return nullptr;
    }
    *status = SetAside(std::move(msg));
    if (*status != ZOR_OK) return nullptr;
    ++setAside;
  }
  *status = ZOR_PY_FLOODED;
  return nullptr;
}

int zor_py_receive_fd(uint32_t sliceMs, uint32_t *status) {
  const std::int64_t end = NowMs() + sliceMs;
  *status = ZOR_OK;
  while (descriptors.empty()) {
    auto msg = ReadNext(end, *status);
    if (*status == ZOR_OK && msg != nullptr) *status = SetAside(std::move(msg));
    if (*status != ZOR_OK) return -1;
  }
  const int fd = descriptors.front().release();
  descriptors.pop_front();
  return fd;
}

char *zor_py_event_text(char *body) {
  char *text = nullptr;
  ZOR_EVT_GetEventContent(ZOR_MSG_GetMsgHead(body), &text, nullptr);
  return text;
}

uint32_t zor_py_publish_items(uint32_t type, const char *name, const char *texts, uint32_t count) {
  std::vector<ZOR_NVPAIR> pairs(count);
  for (ZOR_NVPAIR &pair : pairs) {
    pair.next = &pair == &pairs.back() ? nullptr : &pair + 1;
    for (char **text : {&pair.name, &pair.value}) {
      *text = const_cast<char *>(texts);  // the call only reads it
      texts += std::strlen(texts) + 1;
    }
  }
  return ZOR_EVT_PublishEventWithNVPair(type, name, pairs.empty() ? nullptr : pairs.data());
}

void *zor_py_timer(uint32_t intervalMs, uint32_t repeatCount, uintptr_t id) {
  return ZOR_UTIL_TimerAdd(intervalMs, repeatCount, OnTimer, reinterpret_cast<void *>(id));
}

void zor_py_timer_stop(void *timer) {
  ZOR_UTIL_TimerDel(static_cast<UvTimer *>(timer));
}

void *zor_py_watch(int fd, uintptr_t id) {
  zor::MallocPtr<UvIO> watcher(static_cast<UvIO *>(std::calloc(1, sizeof(UvIO))));
  if (watcher == nullptr || ZOR_UV_IOInit(nullptr, watcher.get(), fd, OnReadable) != ZOR_OK) return nullptr;
  watcher->header.data = reinterpret_cast<void *>(id);
  ZOR_UV_IOStart(watcher.get(), UV_READABLE);
  return watcher.release();
}

void zor_py_unwatch(void *watcher) {
  // Not ZOR_UV_IODelete, which shuts down a socket that other descriptors may share.
  auto *io = static_cast<UvIO *>(watcher);
  const zor::UniqueFd fd(io->fd);
  ZOR_UV_IOStop(io, UV_READABLE);
  io->fd = -1;
  ZOR_UV_WatcherDelete(&io->header);
}

uint32_t zor_py_run(uint32_t limitMs) {
  const PassScope scope(false);
  UvTimer *limit = limitMs == 0 ? nullptr : ZOR_UTIL_TimerAdd(limitMs, 0, OnLimit, nullptr);
  const uint32_t status = ZOR_UV_LoopRun(nullptr, 0);
  ZOR_UTIL_TimerDel(limit);
  return status;
}

void zor_py_stop(void) {
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

uint32_t zor_py_pass(void) {
  if (passHook == nullptr) passHook = ZOR_UV_IdleStart(nullptr, OnTurn);
  if (passHook == nullptr) return ZOR_E_NO_MEMORY;
  uint32_t status = ZOR_OK;
  {
    const PassScope scope(true);
    status = ZOR_UV_LoopRun(nullptr, 0);
  }
  zor::py::SyncDescriptor();
  return status;
}

int zor_py_descriptor(void) {
  return zor::py::OpenDescriptor();
}

void zor_py_sync(void) {
  zor::py::SyncDescriptor();
}
