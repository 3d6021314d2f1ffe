// The message watcher that reads the bus socket on the main loop: a connection made inside a callback of a synchronous
// spawn outlives the spawn and its private loop.
#ifndef SDK_MSGAPI_BUS_WATCHER_H
#define SDK_MSGAPI_BUS_WATCHER_H

#include <zor/uv_io.h>

#include <cstdint>

namespace zor {

// Puts the socket on the main loop and the watcher into the context. ZOR_E_NO_MEMORY; ZOR_E_ARGUMENT when the loop
// cannot take a descriptor of that number.
std::uint32_t StartBusWatcher(int fd) noexcept;

// The context's watcher; null without one, also when the loop was destroyed and the watcher with it.
UvMsgWatcher *LiveBusWatcher() noexcept;

// Takes the watcher off the socket, which stays open. Safe inside a handler that this very watcher dispatched.
void StopBusWatcher() noexcept;

}  // namespace zor

#endif
