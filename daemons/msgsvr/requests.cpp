#include "msgsvr/requests.h"

#include <algorithm>

#include "msgsvr/registration.h"
#include "programs/boards.h"
#include "programs/limits.h"

namespace zor::msgsvr {
const Requests::Entry Requests::kEntries[] = {
    {ZOR_MSG_SUBSCRIBE_EVENT, &Requests::Subscribe},
    {ZOR_MSG_UNSUBSCRIBE_EVENT, &Requests::Unsubscribe},
    {ZOR_MSG_GET_PROCESS_NUM, &Requests::CountProcesses},
    {ZOR_MSG_SAFE_EXIT, &Requests::SafeExit},
    {ZOR_MSG_TIMED_REPORT, &Requests::Report},
    {ZOR_MSG_RESTFUL_REGISTER, &Requests::RegisterPatterns},
    {ZOR_MSG_SYNC_WAIT, &Requests::SyncWait},
    {ZOR_MSG_SYNC_POST, &Requests::SyncPost},
    {ZOR_MSG_SEND_FAILED_NOTICE, &Requests::Ignore},
};

void Requests::Register(Client &from, const Frame &frame) {
  Grant(from, frame);
  const auto body = RegistrationBody(bus_.settings, bus_.traceOverrides, from.name, from.otherOrder);
  delivery_.Reply(from, frame, from.otherOrder ? 1 : 0, body);
}

void Requests::RegisterInOtherOrder(Client &from, const Frame &frame) {
  from.otherOrder = true;
  Grant(from, frame);
  const auto body = RegistrationBody(bus_.settings, bus_.traceOverrides, from.name, true);
  delivery_.SendInOtherOrder(from, BuildFrame(frame.type(), frame.head.sequence, from.name, 1, body));
}

void Requests::Grant(Client &from, const Frame &frame) {
  const auto wanted = AppName::FromField(frame.head.source);
  delivery_.CopyRequest(frame);
  const bool granted = wanted && wanted->IsGrantable() && permission_.MayOwn(from, *wanted);
  if (from.registered()) bus_.names.Remove(from.name, from);
  from.name = granted ? *wanted : AppName();
  if (from.registered()) {
    if (!from.peer.local) ReplaceSilent(from);
    bus_.names.Add(from.name, from);
    from.counters.dropped += bus_.losses.Take(from.name);
  }
  bus_.Changed(from);
  bus_.Changed();
  if (bus_.verbose) bus_.log.PrintOf(from.charge.holder(), "%s registered", from.Label().c_str());
  from.reportPeriod = std::chrono::seconds(bus_.settings.reportSeconds.Get(from.name));
  from.lastReport = Clock::now();
}

// A board that has lost its connection and returns gets its name from the old connection: at once if that is silent, or
// else as soon as the kernel has found it dead. Another process of the same name on a living board keeps its own.
void Requests::ReplaceSilent(const Client &newcomer) {
  const in_addr_t board = daemon::BoardAddress(newcomer.socket.get());
  const auto named = bus_.names.ClientsNamed(newcomer.name);
  for (auto next = named.begin(); next != named.end();) {
    Client *const old = *next;
    ++next;  // while the client is on the bus
    if (old->peer.local || board == 0 || daemon::BoardAddress(old->socket.get()) != board) continue;
    if (!daemon::IsSilent(old->socket.get())) {
      daemon::Probe(old->socket.get());
      continue;
    }
    old->reset = true;
    bus_.CutOff(*old, "its board has returned by another connection");
  }
}

bool Requests::Handle(Client &from, const Frame &frame) {
  const auto *entry = std::find_if(std::begin(kEntries), std::end(kEntries),
                                   [&](const Entry &candidate) { return candidate.type == frame.type(); });
  if (entry == std::end(kEntries)) return false;
  if (!frame.bodyInFile()) {
    CarryOut(*entry, from, frame, frame.body());
    return true;
  }
  // The router has checked that the file is the sender's. The longest content is a list of restful patterns.
  const auto content = files_.Read(limits::msgsvr::kRequestInFile);
  bus_.files.Remove(frame.bytes);
  content ? CarryOut(*entry, from, frame, *content) : delivery_.CopyRequest(frame);
  return true;
}

void Requests::CarryOut(const Entry &entry, Client &from, const Frame &frame, Body body) {
  if (!permission_.MayRequest(from, frame, body)) return delivery_.Refuse(from, frame.bytes, AppName());
  delivery_.CopyRequest(frame);
  (this->*entry.handle)(from, frame, body);
}

void Requests::Subscribe(Client &from, const Frame &frame, Body body) {
  const auto event = EventOf(from, frame);
  const AppName name(TextOf(body));
  if (!event) return;
  if (name.empty() || name == from.name) {
    from.events.set(*event);
    bus_.Changed(from);
  } else if (bus_.subscriptions.Add(name, *event)) {
    bus_.Changed();
  } else {
    bus_.log.PrintOf(from.charge.holder(),
                     "%s: too many subscriptions on behalf of other daemons, the latest is refused",
                     from.Label().c_str());
  }
}

void Requests::Unsubscribe(Client &from, const Frame &frame, Body body) {
  const auto event = EventOf(from, frame);
  const AppName name(TextOf(body));
  if (!event) return;
  bus_.Changed();
  if (name.empty() || name == from.name) {
    bus_.Changed(from);
    RemoveSubscription(from.events, *event);
    bus_.subscriptions.Remove(from.name, *event);
    return;
  }
  for (Client *client : bus_.names.ClientsNamed(name)) {
    RemoveSubscription(client->events, *event);
    bus_.Changed(*client);
  }
  bus_.subscriptions.Remove(name, *event);
}

void Requests::CountProcesses(Client &from, const Frame &frame, Body body) {
  const auto clients = bus_.names.ClientsNamed(AppName(TextOf(body)));
  delivery_.Reply(from, frame, static_cast<uint32_t>(clients.count()));
}

// The daemon has been asked to exit but may not comply, so it stays reachable while it is connected. Subscriptions that
// others made for it end with its last process.
void Requests::SafeExit(Client &, const Frame &, Body body) {
  const AppName name(TextOf(body));
  const auto clients = bus_.names.ClientsNamed(name);
  if (clients.empty()) bus_.subscriptions.Forget(name);
  bus_.Changed();
  for (Client *client : clients) {
    client->leaving = true;
    bus_.Changed(*client);
  }
}

void Requests::Report(Client &from, const Frame &, Body) {
  from.lastReport = Clock::now();
  from.reportMissed = false;
  bus_.Changed(from);
}

void Requests::RegisterPatterns(Client &from, const Frame &, Body body) {
  bus_.Changed(from);
  if (bus_.patterns.Add(from, TextOf(body))) return;
  bus_.log.PrintOf(from.charge.holder(), "%s: too many restful patterns, the latest are refused", from.Label().c_str());
}

void Requests::SyncWait(Client &from, const Frame &frame, Body body) {
  const AppName name(TextOf(body));
  const bool passed = bus_.barriers.Wait({&from, name, frame.head.sequence, bus_.nowMs, from.ordinal()});
  bus_.Changed(from);
  bus_.Changed();
  if (passed) delivery_.Reply(from, frame);
}

// The poster does not wait, so it gets no reply.
void Requests::SyncPost(Client &, const Frame &, Body body) {
  bus_.Changed();
  for (const auto &waiter : bus_.barriers.Post(AppName(TextOf(body)))) {
    Client &client = *waiter.client;
    bus_.Changed(client);
    const bool told =
        bus_.Try([&] { delivery_.Send(client, BuildFrame(ZOR_MSG_SYNC_WAIT, waiter.sequence, client.name, 0)); });
    if (!told) bus_.CutOff(client, "no memory for the end of its wait");
  }
}

void Requests::Ignore(Client &, const Frame &, Body) {}

std::optional<size_t> Requests::EventOf(const Client &from, const Frame &frame) {
  const auto event = EventBit(frame.head.data);
  if (!event) bus_.log.PrintOf(from.charge.holder(), "%s: no such event: 0x%x", from.Label().c_str(), frame.head.data);
  return event;
}

}  // namespace zor::msgsvr
