#include "msgsvr/restoration.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "msgsvr/delivery.h"
#include "msgsvr/recorded_time.h"
#include "programs/limits.h"
#include "programs/peer.h"

namespace zor::msgsvr {
namespace {

AppName NameOf(const AppName::Field &field) {
  return AppName::FromField(field).value_or(AppName());
}

// For a record without identity, what the socket still says: the process may be another one by now.
access::Identity IdentityOf(const StandingRecord &standing, int socket) {
  if (standing.identity) return *standing.identity;
  if (standing.throughTunnel) return msgsvr::IdentityOf(TunnelledBoard{standing.board, standing.boardAddress});
  access::Identity identity = access::ReadIdentity(socket);
  identity.executable.reset();
  identity.unit.reset();
  return !standing.local || identity.user == standing.uid ? identity : access::Identity();
}

EventSet SetOf(const std::vector<uint16_t> &bits) {
  EventSet events;
  for (const uint16_t bit : bits) events.set(bit);
  return events;
}

}  // namespace

void Restoration::Run(const ServerState &state) {
  RestoreBus(state.bus);
  std::vector<const ClientRecord *> records;
  for (const ClientRecord &record : state.clients) records.push_back(&record);
  std::ranges::stable_sort(records, {}, [](const ClientRecord *record) { return record->standing.id; });
  for (const ClientRecord *record : records) RestoreClient(*record);
  if (state.damaged > 0) bus_.log.Print("%zu clients cut off: their records are damaged", state.damaged);
  RepeatRegistrations();
  RepeatPatterns();
  RepeatBarrierWaits();
  bus_.restartFor = state.restartFor;
  bus_.Changed();
  for (const AppName::Field &post : state.bus.standing.posts) bus_.barriers.Post(NameOf(post));
  RestoreTimes();
  // Only now is it known who else has their names.
  for (const Restored &each : restored_) {
    if (each.record->deaf) bus_.Deafen(*each.client, 0);
  }
}

void Restoration::RestoreBus(const BusRecord &record) {
  bus_.started = TimeOf(record.standing.started);
  bus_.UpdateClock();
  bus_.lastId = record.standing.lastId;
  bus_.counters = record.counters;
  for (const auto &[name, events] : record.standing.subscriptions) {
    for (const uint16_t bit : events) bus_.subscriptions.Add(NameOf(name), bit);
  }
  for (const auto &[name, messages] : record.standing.losses) bus_.losses.Add(NameOf(name), messages);
  server_.watch.Restore(record.watch);
}

void Restoration::RestoreClient(const ClientRecord &record) {
  const StandingRecord &standing = record.standing;
  const Peer peer = {standing.uid, standing.pid, standing.local, standing.throughTunnel};
  const size_t queueBytes =
      std::clamp<size_t>(record.queueBytes, bus_.settings.queueBytes, limits::msgsvr::kMostQueueBytes);
  Client &client = bus_.clients.emplace_back(descriptors_.Take(record.socket), peer, standing.id, bus_.journal,
                                             queueBytes, bus_.accounts);
  if (!client.slot.valid()) {
    bus_.log.Print("a client cut off: no memory");
    bus_.Unstore(client);
    return bus_.clients.pop_back();
  }
  client.name = NameOf(standing.name);
  const bool isNew = standing.id > bus_.lastId || restored_.empty() || restored_.back().client->id < standing.id;
  bus_.lastId = std::max(bus_.lastId, standing.id);
  const char *problem = isNew ? ProblemOf(record) : "its number is another's";
  if (problem == nullptr) problem = Fill(client, record);
  if (problem != nullptr) return bus_.CutOff(client, problem);
  restored_.push_back({&client, &record});
}

// Returns why it cannot be restored; null if it has been.
const char *Restoration::Fill(Client &client, const ClientRecord &record) {
  const StandingRecord &standing = record.standing;
  if (!CheckSockets(client, record)) return "its socket is missing";
  if (!client.slot.AppendInput(record.partial)) return "what it sent cannot be restored";
  client.Admit({bus_.guard, IdentityOf(standing, client.socket.get())}, bus_.guard);
  RestoreNotes(client, record);
  client.backlog = record.backlog;
  if (!standing.board.empty()) client.SetBoard({standing.board, standing.boardAddress});
  client.since = standing.since;
  client.events = SetOf(standing.events);
  client.leaving = standing.leaving;
  client.otherOrder = standing.otherOrder;
  client.reportPeriod = std::chrono::seconds(standing.reportSeconds);
  client.lastReport = TimeOf(standing.lastReport);
  client.reportMissed = standing.reportMissed;
  client.gap = EventGap(standing.gap);
  client.lastTarget = record.lastTarget;
  client.counters = record.counters;
  for (const auto &request : record.pending) client.pending.Add(request);
  client.deliveries = Deliveries(record.deliveries);
  client.flows = Flows(record.flows);
  client.refusals = Refusals(record.refusals);
  client.reset = record.reset;
  client.hungUp = record.hungUp;
  client.stalled = record.stalled;
  client.flushes = record.flushes;
  client.unsentWhenStalled = record.unsentWhenStalled;
  client.readable = true;
  if (!Queue(client, record)) return "what is queued for it cannot be restored";
  client.flushing = !client.output.empty();
  client.Settle();
  const uint32_t events = client.flushing ? kClientEvents | EPOLLOUT : kClientEvents;
  return bus_.poll.Add(client.socket.get(), events, &client) ? nullptr : "it cannot be watched";
}

bool Restoration::CheckSockets(Client &client, const ClientRecord &record) {
  client.halfDescriptor = descriptors_.Take(record.halfDescriptor);
  return daemon::IsConnection(client.socket.get(),
                              client.peer.local || client.peer.throughTunnel ? AF_UNIX : AF_INET) &&
         (record.halfDescriptor < 0 || client.halfDescriptor.valid());
}

void Restoration::RestoreNotes(Client &client, const ClientRecord &record) {
  daemon::journal::Notes &notes = client.slot.EditNotes();
  notes.lastTarget = record.lastTarget;
  notes.halfDescriptor = record.halfDescriptor >= 0 ? 1 : 0;
  notes.servedUpTo = record.crash.servedUpTo;
  notes.suspectAt = record.crash.suspectAt;
  notes.crashes = record.crash.crashes;
  client.unreadBefore = record.unreadBefore + record.crash.unread;
  client.slot.NoteUnread(record.deliveries.records.size() + client.unreadBefore);
  bus_.Changed(client);
}

bool Restoration::Queue(Client &client, const ClientRecord &record) {
  for (const QueuedRecord &message : record.queue) {
    UniqueFd descriptor = descriptors_.Take(message.descriptor);
    if (descriptor.valid() != (message.descriptor >= 0)) return false;
    if (!client.output.Push(message.bytes.span(), message.sent, std::move(descriptor))) return false;
  }
  return true;
}

// Calls `repeat` for what clients have registered, in the order of all of them.
template <typename Record, typename OrderOf, typename Repeat>
void Restoration::RepeatInOrder(std::vector<Record> records, OrderOf orderOf, Repeat repeat) {
  std::ranges::stable_sort(records, {}, orderOf);
  for (const Record &record : records) repeat(record);
}

void Restoration::RepeatRegistrations() {
  std::vector<Restored> named;
  std::ranges::copy_if(restored_, std::back_inserter(named),
                       [](const Restored &each) { return each.client->registered() && !each.record->deaf; });
  RepeatInOrder(
      named, [](const Restored &each) { return each.record->standing.registration; },
      [this](const Restored &each) { bus_.names.Add(each.client->name, *each.client); });
  for (const Restored &each : named) {
    const auto &monitor = each.record->standing.monitor;
    if (monitor && !bus_.monitors.Restore(*each.client, *monitor)) {
      bus_.log.Print("%s is no monitor any more: its filter is malformed", each.client->Label().c_str());
    }
  }
}

void Restoration::RepeatPatterns() {
  std::vector<std::pair<Client *, const PatternRecord *>> patterns;
  for (const Restored &each : restored_) {
    if (each.record->deaf) continue;
    for (const PatternRecord &pattern : each.record->standing.patterns) patterns.emplace_back(each.client, &pattern);
  }
  RepeatInOrder(
      patterns, [](const auto &each) { return each.second->order; },
      [this](const auto &each) {
        if (bus_.patterns.Add(*each.first, each.second->list)) return;
        bus_.log.Print("%s: too many restful patterns, the latest are refused", each.first->Label().c_str());
      });
}

void Restoration::RepeatBarrierWaits() {
  std::vector<std::pair<Client *, const BarrierRecord *>> waits;
  for (const Restored &each : restored_) {
    const auto &barrier = each.record->standing.barrier;
    if (barrier && !each.record->deaf) waits.emplace_back(each.client, &*barrier);
  }
  RepeatInOrder(
      waits, [](const auto &each) { return each.second->order; },
      [this](const auto &each) {
        const BarrierRecord &wait = *each.second;
        bus_.barriers.Wait({each.first, NameOf(wait.name), wait.sequence, wait.sinceMs, wait.ordinal});
      });
}

void Restoration::RestoreTimes() {
  std::vector<std::pair<uint64_t, int64_t>> newcomers;
  for (const Restored &each : restored_) {
    // What a crash leaves does not tell the time: it begins anew.
    if (!each.client->registered())
      newcomers.emplace_back(each.client->id, each.record->registerBy.value_or(INT64_MAX));
    if (!each.record->pause) continue;
    const PauseRecord &pause = *each.record->pause;
    Client *reader = bus_.Find(pause.reader);
    if (reader == nullptr) continue;
    server_.pausedSenders.Restore(
        {each.client, reader, TimeOf(pause.until), {pause.flushes, pause.unsent}, TimeOf(pause.progressAt)});
  }
  RepeatInOrder(
      newcomers, [](const auto &each) { return each.second; },
      [this](const auto &each) { server_.newcomers.Restore(each.first, TimeOf(each.second)); });
}

}  // namespace zor::msgsvr
