#include "msgsvr/recovery.h"

#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "msgsvr/bus_fields.h"
#include "msgsvr/client_fields.h"
#include "msgsvr/frames.h"
#include "programs/journal/crash_mark.h"
#include "programs/journal/names.h"
#include "programs/journal_store.h"

namespace zor::msgsvr {
namespace {

using daemon::JournalClient;
using daemon::JournalContent;
using daemon::JournalMessage;
using daemon::JournalTurn;
using daemon::PassedDescriptor;

constexpr size_t kDescriptorFrameSize = 2;

bool IsZero(std::span<const std::byte> bytes) {
  return std::ranges::all_of(bytes, [](std::byte byte) { return byte == std::byte{0}; });
}

// The size of the frame at the start of the bytes; 0 if they do not begin with a whole one.
size_t WholeFrame(std::span<std::byte> bytes) {
  const Parsed parsed = ParseFrame(bytes);
  return parsed.state == Parsed::State::kWhole ? parsed.frame.bytes.size() : 0;
}

// The bytes of whole frames at the start.
size_t WholeFrames(std::span<std::byte> bytes) {
  size_t whole = 0;
  for (size_t size; (size = WholeFrame(bytes.subspan(whole))) > 0;) whole += size;
  return whole;
}

}  // namespace

std::optional<ServerState> Recovery::Run(std::vector<PassedDescriptor> &passed) {
  std::optional<ServerState> state;
  if (auto content = daemon::ReadPassedJournal(passed, program_, log_)) {
    if (FinishFlush(*content) && FinishTurn(*content)) state = StateIn(*content);
    if (state) {
      log_.Print("took over from a server that crashed: %zu clients", state->clients.size());
    } else {
      log_.Print("the journal cannot be used: it is damaged");
    }
  }
  TakeSockets(passed, state ? &*state : nullptr);
  return state;
}

// What the flush under way has sent is taken off the queue.
bool Recovery::FinishFlush(JournalContent &content) {
  JournalClient *client = content.InSlot(content.turn.state.flushing);
  if (client == nullptr) return true;
  uint64_t written = std::exchange(content.turn.written, 0);
  auto message = client->output.begin();
  for (; written > 0 && message != client->output.end(); ++message) {
    const auto taken = static_cast<size_t>(std::min<uint64_t>(written, message->bytes.size() - message->sent));
    message->sent += taken;
    message->hadDescriptor = false;
    written -= taken;
    if (message->sent < message->bytes.size()) break;
  }
  client->output.erase(client->output.begin(), message);
  return written == 0;
}

bool Recovery::FinishTurn(JournalContent &content) {
  JournalTurn &turn = content.turn;
  JournalClient *from = content.InSlot(turn.state.reader);
  if (from == nullptr) return true;
  from->notes.servedUpTo = turn.state.servedUpTo;
  from->notes.lastTarget = turn.state.lastTarget;
  size_t routed = turn.state.routed;
  if (turn.written > 0 && !FinishWrite(content, routed)) return false;
  KeepInput(turn, routed, *from);
  return true;
}

// Of the frames that were being written, those that were sent in full are routed, and so is the next one when its rest
// has been queued.
bool Recovery::FinishWrite(JournalContent &content, size_t &routed) {
  JournalTurn &turn = content.turn;
  JournalClient &to = *content.InSlot(turn.state.writeTo);
  JournalClient &from = *content.InSlot(turn.state.reader);
  const auto bytes = std::span(turn.buffer).first(turn.state.writeEnd);
  for (uint64_t written = turn.written; written > 0;) {
    const auto rest = bytes.subspan(routed);
    const size_t size = WholeFrame(rest);
    if (size == 0 || !to.output.empty()) return false;
    const auto sent = static_cast<size_t>(std::min<uint64_t>(written, size));
    if (sent < size) to.output.push_back({{rest.begin(), rest.begin() + static_cast<ptrdiff_t>(size)}, sent, false});
    written -= sent;
    const auto receiver = static_cast<daemon::Receiver>(turn.state.receiver);
    if (receiver != daemon::Receiver::kOnly) {
      from.notes.servedUpTo = daemon::PlaceOf(to.id, receiver);
      return written == 0;
    }
    routed += size;
    from.notes.lastTarget = to.id;
  }
  return true;
}

// What has not been routed is the input, and the frame that was at work is suspected.
void Recovery::KeepInput(JournalTurn &turn, size_t routed, JournalClient &from) {
  from.input.assign(turn.buffer.begin() + static_cast<ptrdiff_t>(routed), turn.buffer.end());
  from.notes.suspectAt = from.notes.crashes = 0;
  const bool again = turn.state.crashes > 0 && turn.frameAt == turn.state.suspectAt;
  // The descriptor belongs to the end of what was there before the read, or to that of the read.
  if (turn.state.kept > 0 && routed >= turn.state.kept) from.notes.halfDescriptor = 0;
  if (turn.readDescriptor) from.notes.halfDescriptor = 1;
  if (turn.frameAt == daemon::journal::kNoFrame || turn.frameAt < routed) return;
  from.notes.suspectAt = static_cast<uint32_t>(turn.frameAt - routed);
  from.notes.crashes = (again ? turn.state.crashes : 0) + (turn.crashed ? daemon::kCrash : daemon::kKill);
  if (from.notes.crashes >= daemon::kMostCrashes) DropFrame(from);
}

// The descriptor has gone with the process. Of its two bytes, at the end of the input, the second may be still to come:
// then nothing can be known of what comes after it.
bool Recovery::StripDescriptor(JournalClient &from) {
  if (from.notes.halfDescriptor == 0) return true;
  const size_t whole = WholeFrames(from.input);
  const auto rest = std::span(from.input).subspan(whole);
  if (rest.size() != kDescriptorFrameSize || !IsZero(rest)) return false;
  from.input.resize(whole);
  log_.Print("client %llu: a descriptor from it is lost", static_cast<unsigned long long>(from.id));
  return true;
}

void Recovery::DropFrame(JournalClient &from) {
  const size_t at = from.notes.suspectAt;
  const size_t size = at > from.input.size() ? 0 : WholeFrame(std::span(from.input).subspan(at));
  from.notes.crashes = from.notes.suspectAt = 0;
  if (size == 0) return;
  const Frame frame = ParseFrame(std::span(from.input).subspan(at)).frame;
  const AppName source = AppName::FromField(frame.head.source).value_or(AppName());
  log_.Print("a message from %s (client %llu) to \"%s\" dropped: type 0x%x, %zu bytes: the server crashes at it",
             std::string(source.text()).c_str(), static_cast<unsigned long long>(from.id),
             std::string(frame.destination.text()).c_str(), frame.type(), size);
  const auto begin = from.input.begin() + static_cast<ptrdiff_t>(at);
  const uint32_t type = frame.type(), sequence = frame.head.sequence;
  from.input.erase(begin, begin + static_cast<ptrdiff_t>(size));
  if (at == 0) from.notes.servedUpTo = 0;
  if (source.empty() || type == ZOR_MSG_SEND_FAILED_NOTICE) return;
  from.output.push_back({BuildFrame(ZOR_MSG_SEND_FAILED_NOTICE, sequence, source, type), 0, false});
}

std::optional<ServerState> Recovery::StateIn(JournalContent &content) {
  ServerState state;
  bool hasBus = false;
  for (JournalClient &client : content.clients) {
    if (client.id == Bus::kJournalOwner) {
      const auto standing = daemon::ReadRecord<StandingBusRecord>(client.record);
      if (!standing) return std::nullopt;
      state.bus.standing = *standing;
      hasBus = true;
    } else if (auto record = RecordOf(client)) {
      state.clients.push_back(std::move(*record));
    }
  }
  if (!hasBus || msgsvr::ProblemOf(state.bus) != nullptr) return std::nullopt;
  return state;
}

std::optional<ClientRecord> Recovery::RecordOf(JournalClient &client) {
  const auto standing = daemon::ReadRecord<StandingRecord>(client.record);
  if (!standing || standing->id != client.id) return CutOff(client, 0, "", "its record is damaged");
  const AppName name = AppName::FromField(standing->name).value_or(AppName());
  if (!StripDescriptor(client)) {
    return CutOff(client, standing->pid, name.text(),
                  "a descriptor from it is lost, and where its messages go on is unknown");
  }
  ClientRecord record;
  record.standing = *standing;
  record.backlog = WholeFrames(client.input) > 0;
  record.partial = std::move(client.input);
  record.lastTarget = client.notes.lastTarget;
  record.crash = {client.notes.servedUpTo, client.notes.suspectAt, client.notes.crashes, client.unread};
  QueueOutput(client, record);
  return record;
}

std::nullopt_t Recovery::CutOff(const JournalClient &client, pid_t pid, std::string_view name, const char *reason) {
  log_.Print("%.*s (client %llu, pid %d) cut off: %s", static_cast<int>(name.size()), name.data(),
             static_cast<unsigned long long>(client.id), pid, reason);
  named_.insert(client.id);
  return std::nullopt;
}

void Recovery::QueueOutput(JournalClient &client, ClientRecord &record) {
  size_t lost = 0;
  for (JournalMessage &message : client.output) {
    if (message.hadDescriptor) {
      ++lost;
      continue;
    }
    record.queueBytes += daemon::OutputQueue::CostOf(message.bytes.size());
    record.queue.push_back({std::move(message.bytes), message.sent, -1});
  }
  if (lost == 0) return;
  const AppName name = AppName::FromField(record.standing.name).value_or(AppName());
  log_.Print("%s (client %llu): %zu descriptors to it are lost", std::string(name.text()).c_str(),
             static_cast<unsigned long long>(client.id), lost);
}

// A socket without a record is of no use. That of a record that is missing is named when the client is restored.
void Recovery::TakeSockets(std::vector<PassedDescriptor> &passed, ServerState *state) {
  size_t cutOff = 0;
  for (PassedDescriptor &each : passed) {
    const auto id = daemon::journal::NumberIn(each.name, kStoredClient);
    if (!id) continue;
    const auto record = state == nullptr ? std::vector<ClientRecord>::iterator()
                                         : std::ranges::find(state->clients, *id,
                                                             [](const auto &client) { return client.standing.id; });
    if (state != nullptr && record != state->clients.end() && record->socket < 0) {
      record->socket = descriptors_.Add(std::move(each.fd));
      continue;
    }
    if (!named_.contains(*id)) ++cutOff;
    ::shutdown(each.fd.get(), SHUT_RDWR);
    daemon::RemoveStoredDescriptors(each.name);
    each.fd.reset();
  }
  std::erase_if(passed, [](const PassedDescriptor &each) { return each.name.starts_with(kStoredClient); });
  if (cutOff > 0) log_.Print("%zu clients cut off: the journal does not hold their state", cutOff);
}

}  // namespace zor::msgsvr
