#include "support/notify_frame.h"

#include <cstring>

namespace zor::test {
namespace {

NotifyFrame MakeFrame(uint32_t type, uint32_t source, uint32_t destination, std::string data) {
  NotifyFrame frame;
  frame.head.msg_type = type;
  frame.head.source_id = source;
  frame.head.des_id = destination;
  frame.head.ack_tag = ZOR_NOTIFY_ACK_REQUEST;
  frame.head.data_len = static_cast<uint32_t>(data.size());
  frame.data = std::move(data);
  return frame;
}

}  // namespace

std::string NotifyFrame::Bytes() const {
  return std::string(reinterpret_cast<const char *>(&head), sizeof head) + data;
}

NotifyFrame MakeRequest(uint32_t type, uint32_t seq, uint32_t source, uint32_t destination, std::string data) {
  NotifyFrame frame = MakeFrame(type, source, destination, std::move(data));
  frame.head.seq = seq;
  frame.head.sync_tag = 1;
  return frame;
}

NotifyFrame MakeReply(const NotifyFrame &request, std::string data) {
  NotifyFrame frame = MakeRequest(request.head.msg_type, request.head.seq, request.head.des_id, request.head.source_id,
                                  std::move(data));
  frame.head.ack_tag = ZOR_NOTIFY_ACK_ANSWER;
  return frame;
}

NotifyFrame MakeAsync(uint32_t type, uint32_t source, uint32_t destination, const std::string &part1,
                      const std::string &part2) {
  NotifyFrame frame = MakeFrame(type, source, destination, part1 + part2);
  frame.head.sub_data_len1 = static_cast<uint32_t>(part1.size());
  frame.head.sub_data_len2 = static_cast<uint32_t>(part2.size());
  return frame;
}

NotifyFrame MakeRegistration(uint32_t mid) {
  return MakeAsync(ZOR_NOTIFY_TYPE_REGISTER, mid, ZOR_NOTIFY_MID_SERVER,
                   std::string(reinterpret_cast<const char *>(&mid), sizeof mid), std::string(4, '\0'));
}

std::optional<NotifyFrame> ReceiveNotify(const BusPeer &peer, std::chrono::milliseconds deadline) {
  NotifyFrame frame;
  const std::string head = peer.Receive(sizeof frame.head, deadline);
  if (head.size() != sizeof frame.head) return std::nullopt;
  std::memcpy(&frame.head, head.data(), sizeof frame.head);
  frame.data = peer.Receive(frame.head.data_len, deadline);
  if (frame.data.size() != frame.head.data_len) return std::nullopt;
  return frame;
}

}  // namespace zor::test
