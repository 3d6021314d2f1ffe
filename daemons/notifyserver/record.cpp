#include "notifyserver/record.h"

#include <zor/notify_wire.h>

#include <algorithm>

#include "notifyserver/frame.h"
#include "programs/limits.h"

namespace zor::notifyserver {
namespace {

// Only the first message may be partly sent.
bool IsQueueable(const QueuedRecord &message, bool first) {
  if (message.sent >= message.bytes.size() || (message.sent > 0 && !first)) return false;
  std::vector<std::byte> bytes = message.bytes;
  const Parsed parsed = ParseFrame(bytes, ZOR_NOTIFY_DATA_MAX);
  return parsed.state == Parsed::State::kWhole && parsed.frame.bytes.size() == bytes.size();
}

}  // namespace

bool MayRegister(uint32_t mid) {
  return mid >= ZOR_NOTIFY_MID_FIRST && mid <= ZOR_NOTIFY_MID_LAST && mid != ZOR_NOTIFY_MID_SERVER;
}

const char *ProblemOf(const ClientRecord &record) {
  const StandingRecord &standing = record.standing;
  if (standing.id == 0) return "it has no number";
  if (standing.mid != 0 && !MayRegister(standing.mid)) return "its module id is invalid";
  if (standing.connectedAt < 0) return "its times are wrong";
  if (standing.requests.size() > limits::notifyserver::kRequests) return "it has too many pending requests";
  const auto queueable = [&](const QueuedRecord &each) { return IsQueueable(each, &each == &record.queue.front()); };
  return std::ranges::all_of(record.queue, queueable) ? nullptr : "its queue is malformed";
}

}  // namespace zor::notifyserver
