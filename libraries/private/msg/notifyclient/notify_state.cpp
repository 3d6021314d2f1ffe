#include "notifyclient/notify_state.h"

#include <sys/socket.h>
#include <unistd.h>
#include <zor/status.h>

#include <mutex>

#include "base/list.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/sockutil/sockbase.h"

namespace zor::notify {
namespace {

// The watcher, or null once its loop has been destroyed and has freed it.
SockBase *LiveWatcher() {
  SockBase *watcher = g_stClient.watcher;
  return watcher != nullptr && IsOnLoop(MainLoop(), &watcher->io.header) ? watcher : nullptr;
}

// Closes the connection and returns with its senders locked out.
std::unique_lock<std::mutex> Close() {
  SockBase *watcher = LiveWatcher();
  if (watcher != nullptr) ::shutdown(watcher->io.fd, SHUT_RDWR);  // wakes a thread that is stuck in a write
  std::unique_lock lock(SendMutex());
  // Deleting the watcher closes its descriptor; a second close could hit a file that another thread has just opened.
  if (watcher != nullptr) {
    ZOR_UTIL_SockBaseDelete(watcher);
  } else if (IsConnected()) {
    ::close(g_stClient.fd);
  }
  return lock;
}

bool Watch(int fd, SOCK_EVENT_PROC eventProc) {
  return RegisterSockBase(MainLoop(), fd, eventProc, ZOR_SOCK_MODE_READ, &g_stClient, &g_stClient.watcher) == ZOR_OK;
}

void FreePendingMessage(void *item) {
  std::free(static_cast<PendingNotify *>(item)->msg);
}

}  // namespace

constinit Client g_stClient{};

std::mutex &SendMutex() noexcept {
  static constinit std::mutex mutex;
  return mutex;
}

void Destroy() noexcept {
  const auto lock = Close();
  ZOR_UTIL_ListDeleteAll(&g_stClient.handlers, nullptr);
  ZOR_UTIL_ListDeleteAll(&g_stClient.pending, FreePendingMessage);
  g_stClient = Client();
}

void Disconnect() noexcept {
  const auto lock = Close();
  g_stClient.fd = -1;
  g_stClient.watcher = nullptr;
  g_stClient.lost = true;
}

bool Restore(UniqueFd fd, SOCK_EVENT_PROC eventProc) noexcept {
  if (!Watch(fd.get(), eventProc)) return false;
  SetDescriptor(fd.release());
  return true;
}

void SetOwnId(std::uint32_t mid) noexcept {
  const std::lock_guard lock(SendMutex());
  g_stClient.mid = mid;
}

void SetDescriptor(std::int32_t fd) noexcept {
  const std::lock_guard lock(SendMutex());
  g_stClient.fd = fd;
  g_stClient.lost = false;
}

bool StartWatching(SOCK_EVENT_PROC eventProc) noexcept {
  return Watch(g_stClient.fd, eventProc);
}

bool IsWatched() noexcept {
  return LiveWatcher() != nullptr;
}

void StopWatching() noexcept {
  SockBase *watcher = LiveWatcher();
  g_stClient.watcher = nullptr;
  if (watcher == nullptr) return;
  ZOR_UV_IOStop(&watcher->io, UV_READABLE | UV_WRITABLE | UV_EXCEPTIONAL);
  watcher->io.fd = -1;  // keeps the deletion from closing it
  ZOR_UTIL_SockBaseDelete(watcher);
}

Handler *FindHandler(std::uint32_t type) noexcept {
  return Find(g_stClient.handlers, [type](const Handler &handler) { return handler.type == type; });
}

void AppendPending(NotifyPtr msg) noexcept {
  auto entry = GuardedNew<PendingNotify>();
  if (entry == nullptr) return;
  entry->msg = msg.release();
  Append(g_stClient.pending, entry.release());
}

}  // namespace zor::notify
