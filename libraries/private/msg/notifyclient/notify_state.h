// The one notification client of the process: its connection, its handlers and what came in while a request waited.
//
// All of it belongs to the loop's thread, except what every sender needs: other threads send too. They use this
// module's id, the descriptor, whether it is lost, and the sequence counter with SendMutex held. The connection is
// closed or replaced only with it held, so that nothing is ever written to a number that meanwhile carries another
// file.
#ifndef NOTIFYCLIENT_NOTIFY_STATE_H
#define NOTIFYCLIENT_NOTIFY_STATE_H

#include <zor/notifyclt.h>
#include <zor/sockbase.h>

#include <cstdint>
#include <mutex>

#include "base/alloc.h"
#include "common/unique_fd.h"

namespace zor::notify {

// The trace table stores 11 characters of a module, so these lines appear only under the setting for all modules.
inline constexpr char kTraceModule[] = "notifyclient";

// A header and its data in one block.
using NotifyPtr = MallocPtr<ZOR_NOTIFY_MSG>;

struct Handler {
  Handler *next;
  std::uint32_t type;
  ZOR_NOTIFY_SYNC_PROC syncProc;
  ZOR_NOTIFY_ASYNC_PROC asyncProc;
};

struct PendingNotify {
  PendingNotify *next;
  ZOR_NOTIFY_MSG *msg;
};

// Begins with this module's id: default asynchronous handlers are given the address and read it there.
struct Client {
  std::uint32_t mid;
  std::int32_t fd = -1;
  bool lost;  // the connection has ended and is to be made again
  std::uint32_t sequence;
  SockBase *watcher;  // on the main loop; destroying the loop frees it without notifying the client
  Handler *handlers;
  ZOR_NOTIFY_DEFAULT_SYNC_PROC defaultSync;
  ZOR_NOTIFY_DEFAULT_ASYNC_PROC defaultAsync;
  PendingNotify *pending;
};

extern Client g_stClient;

std::mutex &SendMutex() noexcept;

inline bool IsConnected() noexcept {
  return g_stClient.fd >= 0;
}

// Closes the connection and clears the whole state, handlers and pending messages included.
void Destroy() noexcept;

// Closes the connection, which is to be made again; the rest stays.
void Disconnect() noexcept;

// Sends and receives over this connection, which replaces the lost one. False, with it closed, when the loop does not
// take it.
bool Restore(UniqueFd fd, SOCK_EVENT_PROC eventProc) noexcept;

// Sends under this module id from now on.
void SetOwnId(std::uint32_t mid) noexcept;

// Sends and receives on this descriptor from now on.
void SetDescriptor(std::int32_t fd) noexcept;

// Watches the connection on the main loop. False when the loop does not take it.
bool StartWatching(SOCK_EVENT_PROC eventProc) noexcept;

bool IsWatched() noexcept;

// Takes the connection off its loop and leaves the descriptor open.
void StopWatching() noexcept;

// The handler entry of a type, or null.
Handler *FindHandler(std::uint32_t type) noexcept;

// Keeps a message for the idle hook. Without memory the message is lost.
void AppendPending(NotifyPtr msg) noexcept;

}  // namespace zor::notify

#endif
