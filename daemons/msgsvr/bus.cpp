#include "msgsvr/bus.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <unordered_set>

#include "msgsvr/unread.h"
#include "programs/service_manager.h"

namespace zor::msgsvr {

void Bus::End(Client &client) {
  if (client.ended) return;
  client.ended = true;
  someEnded_ = true;
  LoseUnread(client);
  TakeOffTables(client);
  client.charge.Release();
  // A program that has just been started holds all sockets for a moment: closing ours would not end its events.
  poll.Remove(client.socket.get());
  if (kept) Unstore(client);
  if (verbose && client.registered()) log.PrintOf(client.charge.holder(), "%s disconnected", client.Label().c_str());
}

// The duplicate would keep the connection open.
void Bus::Unstore(Client &client) {
  ::shutdown(client.socket.get(), SHUT_RDWR);
  Try([&] { daemon::RemoveStoredDescriptors(StoredName(client.id)); });
}

// Its messages now go to another client of its name, if there is one.
void Bus::Deafen(Client &client, int error) {
  if (error == ECONNRESET) client.reset = true;
  if (client.ended || client.deaf) return;
  client.deaf = true;
  TakeOffTables(client);
  someDeaf_ = true;
}

void Bus::TakeOffTables(Client &client) {
  patterns.Remove(client);
  barriers.Forget(client);
  monitors.Remove(client);
  if (!client.registered()) return;
  names.Remove(client.name, client);
  if (!client.leaving || !names.ClientsNamed(client.name).empty()) return;
  subscriptions.Forget(client.name);
  Changed();
}

void Bus::ForgetAllRead(Client &client) {
  client.deliveries.Clear([this](const auto &name) { return files.Exists(name); });
  client.unreadBefore = 0;
}

void Bus::ForgetRead(Client &client) {
  if (!client.deliveries.IsCheckDue() || client.ended || client.deaf) return;
  const size_t queued = client.output.messageCount();
  if (queued == 0 && !HasUnread(client.socket.get())) return ForgetAllRead(client);
  client.deliveries.Trim(limits::msgsvr::kDeliveries + queued, [this](const auto &name) { return files.Exists(name); });
}

// Counts and names what the client has not read, leaves its senders to be told, and removes the body files.
void Bus::LoseUnread(Client &client) {
  uint64_t lost = 0;
  uint64_t untold = 0;
  for (const Delivered &delivered : UnreadBy(client)) {
    if (delivered.bytes < ZOR_MSG_HEAD_SIZE || delivered.type == ZOR_MSG_CONTROL_COPY) continue;
    ++lost;
    if (delivered.from == 0 || delivered.from == client.id) continue;
    const Undelivered message = {delivered.from, delivered.type, delivered.sequence};
    if (!Try([&] { undelivered_.push_back(message); })) ++untold;
  }
  if (untold > 0) {
    log.PrintOf(client.charge.holder(), "%s: no memory to tell the senders of %llu messages to it",
                client.Label().c_str(), static_cast<unsigned long long>(untold));
  }
  if (client.reset) lost += client.unreadBefore;
  lost = std::max<uint64_t>(lost, MessagesFor(client));
  Try([&] { client.output.ForEach([&](auto message, size_t, int) { files.Remove(message); }); });
  if (client.reset) {
    someLost_ = true;
    for (const auto &file : client.deliveries.files()) files.RemoveNamed(file.name);
  }
  const uint64_t refused = client.refusals.TakeUntold();
  if (lost + refused == 0) return;
  counters.dropped += lost;
  Changed();
  if (client.registered()) Try([&] { losses.Add(client.name, lost + client.refusals.total()); });  // the log has it
  log.PrintOf(client.charge.holder(), "%s has ended: %s%llu messages to it unread, %llu refused before",
              client.Label().c_str(), client.reset && client.peer.local ? "at most " : "",
              static_cast<unsigned long long>(lost), static_cast<unsigned long long>(refused));
}

// A local socket only says that something was unread, so all is taken for unread that has not been seen to be read. One
// to another board says how much has not arrived there.
std::span<const Delivered> Bus::UnreadBy(Client &client) {
  if (client.reset) return client.deliveries.Unproven([this](const auto &name) { return files.Exists(name); });
  const uint64_t onItsWay = client.peer.local ? 0 : static_cast<uint64_t>(UnsentBytes(client.socket.get()));
  return client.deliveries.Newest(client.output.bytesLeft() + onItsWay);
}

size_t Bus::MessagesFor(const Client &client) {
  size_t count = 0;
  try {
    client.output.ForEach([&](auto message, size_t, int) {
      if (message.size() >= ZOR_MSG_HEAD_SIZE && !IsCopy(message)) ++count;
    });
  } catch (const std::bad_alloc &) {  // some were not looked at
    count = client.output.messageCount();
  }
  return count;
}

void Bus::CutOff(Client &client, const char *reason) {
  if (client.ended) return;
  log.PrintOf(client.charge.holder(), "%s cut off: %s", client.Label().c_str(), reason);
  End(client);
}

void Bus::CutOffSlow(Client &client, size_t refused) {
  std::array<char, 64> reason;
  std::snprintf(reason.data(), reason.size(), "its output queue is full, %zu messages lost",
                MessagesFor(client) + refused);
  CutOff(client, reason.data());
}

void Bus::Sweep() {
  if (std::exchange(someLost_, false)) SweepFiles();
  if (!someEnded_) return;
  someEnded_ = false;
  // A request that was being served when its sender ended has put the sender back.
  for (Client &client : clients) {
    if (client.ended) TakeOffTables(client);
  }
  std::erase_if(clients, [](const Client &client) { return client.ended; });
}

void Bus::SweepFiles() {
  if (!Try([this] { RemoveLeftBehind(); })) log.Print("no memory to remove body files that were left behind");
}

void Bus::RemoveLeftBehind() {
  std::unordered_set<std::string> inTransit;
  for (const Client &client : clients) {
    if (client.ended) continue;
    for (const auto &file : client.deliveries.files()) inTransit.insert(file.name);
    // After a crash only the queue says whose they are.
    client.output.ForEach([&](auto message, size_t, int) {
      if (message.size() >= ZOR_MSG_HEAD_SIZE) inTransit.insert(BodyFiles::NameIn(message));
    });
  }
  const auto swept = files.Sweep([&](const std::string &name) { return inTransit.contains(name); });
  if (swept.files > 0)
    log.Print("%zu body files that were left behind removed, %llu bytes", swept.files,
              static_cast<unsigned long long>(swept.bytes));
}

void Bus::NoteWallClock() {
  using std::chrono::duration_cast;
  using std::chrono::microseconds;
  const auto wall = duration_cast<microseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
  const auto steady = duration_cast<microseconds>(Clock::now().time_since_epoch()).count();
  recorder.SetClockOffset(static_cast<uint64_t>(wall - steady));
}

Client *Bus::Find(uint64_t id) {
  const auto found = std::find_if(clients.begin(), clients.end(),
                                  [&](const Client &client) { return client.id == id && !client.ended; });
  return found == clients.end() ? nullptr : &*found;
}

}  // namespace zor::msgsvr
