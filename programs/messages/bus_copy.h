// A copy of a message, as the server sends it to monitors of the bus.
#ifndef PROGRAMS_MESSAGES_BUS_COPY_H
#define PROGRAMS_MESSAGES_BUS_COPY_H

#include <zor/control_wire.h>

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace zor::messages {

struct BusCopy {
  ZOR_CONTROL_COPY copy;
  ZOR_MSG_HEAD head;
  std::string_view body;  // the copied part

  uint32_t type() const { return head.type & ZOR_MSG_TYPE_MASK; }
  bool delivered() const { return copy.outcome == ZOR_CONTROL_DELIVERED; }
  bool inFile() const { return (head.type & ZOR_MSG_BODY_IN_FILE) != 0; }
  std::string_view source() const;
  std::string_view destination() const;
  // The receiver or, if undelivered, the intended one; empty: the server.
  std::string_view receiver() const;
};

// The copy in the body of a ZOR_MSG_CONTROL_COPY, which must outlive it; no value if it is truncated.
std::optional<BusCopy> ParseCopy(std::string_view bytes);

// Distinguishes replies from requests, whose bodies have other shapes, by the earlier copies.
class Conversations {
 public:
  // Call it once for each copy, in order.
  bool IsReply(const BusCopy &copy);

 private:
  static constexpr size_t kMaxRequests = 4096;
  using Key = std::pair<std::string, uint64_t>;  // sender; type and sequence number

  std::set<Key> requests_;
};

// The decoded body; a body in a file as the file's name.
nlohmann::ordered_json CopyBody(const BusCopy &copy, bool isReply);
nlohmann::ordered_json CopyJson(const BusCopy &copy, bool isReply);

}  // namespace zor::messages

#endif
