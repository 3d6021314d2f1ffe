// Messages onto and off the notification connection.
#ifndef NOTIFYCLIENT_NOTIFY_TRANSFER_H
#define NOTIFYCLIENT_NOTIFY_TRANSFER_H

#include <cstddef>
#include <cstdint>

#include "notifyclient/notify_state.h"

namespace zor::notify {

// A message of this module with the next sequence number and zeroed data. Null when the size is refused or memory
// is short; the length may be any sum of two 32-bit lengths.
NotifyPtr NewMessage(std::uint32_t destination, std::uint32_t type, std::uint64_t dataLength) noexcept;

// Fills part of a message's data. A part without a pointer leaves its zeros.
void PutData(ZOR_NOTIFY_MSG &msg, std::uint32_t offset, const void *data, std::uint32_t length) noexcept;

inline std::byte *DataOf(ZOR_NOTIFY_MSG &msg) noexcept {
  return reinterpret_cast<std::byte *>(&msg + 1);
}

// Sends one message. Returns 0, ZOR_NOTIFY_E_NOT_WRITABLE, ZOR_NOTIFY_E_TIMEOUT (the peer is gone) or ZOR_NOTIFY_E_IO.
std::uint32_t Send(const ZOR_NOTIFY_MSG &msg) noexcept;

// Sends this module's registration over a connection that is not in use yet. Returns what Send returns.
std::uint32_t SendRegistration(int fd) noexcept;

// Receives one message, waiting for it as long as it takes within the channel's time limit. Returns 0,
// ZOR_NOTIFY_E_TIMEOUT, ZOR_NOTIFY_E_SERVER_GONE, ZOR_NOTIFY_E_NO_MEMORY or ZOR_NOTIFY_E_IO; msg is then untouched.
std::uint32_t Receive(NotifyPtr &msg) noexcept;

}  // namespace zor::notify

#endif
