// A notification on the wire, and the far end of a notification client's connection.
#ifndef TESTS_SUPPORT_NOTIFY_FRAME_H
#define TESTS_SUPPORT_NOTIFY_FRAME_H

#include <zor/notify_wire.h>

#include <optional>
#include <string>

#include "support/scripted_server.h"

namespace zor::test {

// Set head.data_len afterwards for a frame that lies about its length.
struct NotifyFrame {
  ZOR_NOTIFY_MSG head = {};
  std::string data;

  std::string Bytes() const;
};

NotifyFrame MakeRequest(uint32_t type, uint32_t seq, uint32_t source, uint32_t destination, std::string data = {});
NotifyFrame MakeReply(const NotifyFrame &request, std::string data = {});
NotifyFrame MakeAsync(uint32_t type, uint32_t source, uint32_t destination, const std::string &part1 = {},
                      const std::string &part2 = {});
NotifyFrame MakeRegistration(uint32_t mid);

// Empty when no whole frame arrives before the deadline.
std::optional<NotifyFrame> ReceiveNotify(const BusPeer &peer, std::chrono::milliseconds deadline = kPatience);

}  // namespace zor::test

#endif
