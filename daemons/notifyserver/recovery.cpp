// After a crash: the state that the server left in its journal.
#include <algorithm>
#include <span>
#include <utility>

#include "notifyserver/server_state.h"
#include "programs/journal/crash_mark.h"

namespace zor::notifyserver {
namespace {

using daemon::JournalClient;
using daemon::JournalContent;
using daemon::JournalMessage;
using daemon::JournalTurn;

// The kernel has taken so many bytes of the queue, and the server had no time to note that.
void TakeOff(std::vector<QueuedRecord> &queue, size_t written) {
  auto message = queue.begin();
  for (; message != queue.end() && written > 0; ++message) {
    const size_t taken = std::min(written, message->bytes.size() - message->sent);
    message->sent += taken;
    written -= taken;
    if (message->sent < message->bytes.size()) break;
  }
  queue.erase(queue.begin(), message);
}

// What has been read and not routed. Input that was not put into the buffer precedes that in the buffer.
void AddUnrouted(const JournalTurn &turn, ClientRecord &record) {
  if (turn.state.kept == record.input.size()) record.input.clear();
  const auto unrouted = std::span(turn.buffer).subspan(turn.state.routed);
  record.input.insert(record.input.end(), unrouted.begin(), unrouted.end());
  if (turn.frameAt != turn.state.routed) return;
  record.crashes = turn.state.crashes + (turn.crashed ? daemon::kCrash : daemon::kKill);
}

}  // namespace

ServerState RecoverState(JournalContent content) {
  ServerState state;
  const JournalClient *reader = content.InSlot(content.turn.state.reader);
  const JournalClient *flushed = content.InSlot(content.turn.state.flushing);
  for (JournalClient &client : content.clients) {
    auto standing = daemon::ReadRecord<StandingRecord>(client.record);
    if (!standing || standing->id != client.id) {
      ++state.damaged;
      continue;
    }
    ClientRecord &record = state.clients.emplace_back();
    record.standing = std::move(*standing);
    record.input = std::move(client.input);
    for (JournalMessage &message : client.output) record.queue.push_back({std::move(message.bytes), message.sent});
    if (&client == flushed) TakeOff(record.queue, content.turn.written);
    if (&client == reader) {
      AddUnrouted(content.turn, record);
      state.unrouted.push_back(client.id);
    }
    state.server.lastId = std::max(state.server.lastId, client.id);
  }
  return state;
}

}  // namespace zor::notifyserver
