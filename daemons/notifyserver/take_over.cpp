// The start: this process goes on where another server has stopped.
#include <sys/socket.h>
#include <zor/control_wire.h>
#include <zor/paths.h>

#include <algorithm>
#include <utility>

#include "notifyserver/server.h"
#include "programs/journal/names.h"
#include "programs/journal_store.h"
#include "programs/paths.h"
#include "programs/peer.h"

namespace zor::notifyserver {
namespace {

// Every module creates a socket beside the server's, whatever user it runs as; as in /tmp, users can remove only their
// own.
constexpr mode_t kDirectoryMode = 01777;
constexpr mode_t kSocketMode = 0666;

}  // namespace

daemon::ExitCode Server::Open(daemon::Start &start, daemon::DescriptorSet inherited) {
  if (!signals_.valid() || !poll_.valid() || !succession_.valid()) {
    log_.PrintErrno("cannot wait for events");
    return daemon::kExitFailure;
  }
  if (start.inherited) return TakeOver(*start.inherited, inherited);
  if (!daemon::MakeDirectory(ZOR_PATH_NOTIFY_DIR, kDirectoryMode)) {
    log_.PrintErrno("%s", ZOR_PATH_NOTIFY_DIR);
    return daemon::kExitFailure;
  }
  const auto code = listener_.OpenPassed(ZOR_PATH_NOTIFY_SERVER, SOCK_STREAM, kSocketMode, start.passed, log_);
  if (code != daemon::kExitOk) return code;
  TakeOverCrashed(start.passed);
  return Watch() ? daemon::kExitOk : daemon::kExitFailure;
}

bool Server::Watch() {
  if (poll_.Add(signals_.fd(), EPOLLIN, &signals_) && poll_.Add(listener_.fd(), EPOLLIN, &listener_) &&
      poll_.Add(succession_.fd(), EPOLLIN, &succession_)) {
    return true;
  }
  log_.PrintErrno("cannot wait for events");
  return false;
}

daemon::ExitCode Server::TakeOver(const daemon::Inheritance &inheritance, daemon::DescriptorSet &descriptors) {
  const daemon::MappedState bytes(inheritance.state.get());
  std::string problem = "it cannot be read";
  auto state = bytes.valid() ? ReadState(bytes.bytes(), problem) : std::nullopt;
  if (!state) {
    log_.Print("nothing taken over: %s", problem.c_str());
    return daemon::kExitFailure;
  }
  listener_.Adopt(descriptors.Take(state->server.listener), descriptors.Take(state->server.lock), SOCK_STREAM);
  if (!Watch()) return daemon::kExitFailure;
  Restore(*state, descriptors);
  daemon::StoreJournal(journal_, {});
  inheritance.Report(log_);
  if (state->owed) router_.control().Owe(*state->owed);
  for (const auto &[key, client] : clients_) {
    if (state->owed && client->id() == state->owed->client) {
      router_.control().PayOwed(*client, ZOR_CONTROL_OK, inheritance.Json());
    }
  }
  router_.control().ForgetOwed();
  ReleaseEnded();
  FlushAll(shared_);
  return daemon::kExitOk;
}

// The new journal takes the place of the old ones before the first byte is sent: until then this process may end, and
// the next one finds everything as this one did.
void Server::TakeOverCrashed(std::vector<daemon::PassedDescriptor> &passed) {
  auto content = daemon::ReadPassedJournal(passed, log_.program(), log_);
  ServerState state;
  if (content) state = RecoverState(std::move(*content));
  daemon::DescriptorSet descriptors;
  size_t unknown = 0;
  for (daemon::PassedDescriptor &each : passed) {
    const auto id = daemon::journal::NumberIn(each.name, kStoredPrefix);
    if (!id) continue;
    const auto record = std::ranges::find(state.clients, *id, [](const auto &r) { return r.standing.id; });
    if (record != state.clients.end() && record->socket < 0) {
      record->socket = descriptors.Add(std::move(each.fd));
    } else {
      ++unknown;
      daemon::RemoveStoredDescriptors(each.name);
    }
  }
  if (unknown > 0) log_.Print("%zu connections cut off: nothing is known of their clients", unknown);
  Restore(state, descriptors);
  daemon::StoreJournal(journal_, passed);
  passed.clear();
  if (content || unknown > 0) log_.Print("took over from a server that crashed: %zu clients", clients_.size());
  ReleaseEnded();  // before a frame can lead to one that has no place in the journal
  for (const uint64_t id : state.unrouted) {
    for (const auto &[key, client] : clients_) {
      if (client->id() == id) TakeIn(*client, &Intake::Resume);
    }
  }
  ReleaseEnded();
  FlushAll(shared_);
}

void Server::Restore(ServerState &state, daemon::DescriptorSet &descriptors) {
  if (state.damaged > 0) log_.Print("%zu clients cut off: their records are damaged", state.damaged);
  if (state.server.started > 0) router_.control().SetStart(TimeOf(state.server.started));
  lastId_ = state.server.lastId;
  std::ranges::sort(state.clients, {}, [](const ClientRecord &record) { return record.standing.registration; });
  for (const ClientRecord &record : state.clients) RestoreClient(record, descriptors);
  router_.EndOrphans();
}

void Server::RestoreClient(const ClientRecord &record, daemon::DescriptorSet &descriptors) {
  UniqueFd socket = descriptors.Take(record.socket);
  const char *problem = ProblemOf(record);
  if (problem == nullptr && !daemon::IsConnection(socket.get(), AF_UNIX)) problem = "its socket is missing";
  const bool known =
      std::ranges::any_of(clients_, [&](const auto &each) { return each.second->id() == record.standing.id; });
  if (problem == nullptr && known) problem = "its number is another's";
  if (problem != nullptr) {
    log_.PrintOf({record.standing.uid, record.standing.pid}, "module %u (pid %d) cut off: %s, %zu messages lost",
                 record.standing.mid, record.standing.pid, problem, record.queue.size());
    daemon::RemoveStoredDescriptors(kStoredPrefix + std::to_string(record.standing.id));
    return;
  }
  Client &client = Add(std::make_unique<Client>(std::move(socket), record, shared_));
  lastId_ = std::max(lastId_, client.id());
  if (client.registered()) router_.Adopt(client);
  if (!client.Restore(record) || !client.Watch()) client.End("no memory to take it over");
}

}  // namespace zor::notifyserver
