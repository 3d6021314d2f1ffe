// The running server is replaced by the program that is at its path now.
#include <new>
#include <vector>

#include <zor/control_wire.h>

#include "notifyserver/server.h"

namespace zor::notifyserver {

void Server::BeginHandOver() {
  handOverWanted_ = false;
  if (succession_.underWay()) return;
  try {
    if (!succession_.Begin(WriteState())) RefuseOwed();
  } catch (const std::bad_alloc &) {
    succession_.Refuse("no memory");
    RefuseOwed();
  }
}

// Nothing has been routed since the last commit, so the records and the journal say the same.
void Server::ContinueHandOver() {
  const auto outcome = succession_.Continue();
  if (outcome == daemon::Succession::Outcome::kRefused) RefuseOwed();
  if (outcome != daemon::Succession::Outcome::kAccepted) return;
  try {
    const UniqueFd state = WriteState();
    std::vector<int> kept = {listener_.fd(), listener_.lockFd()};
    for (const auto &[key, client] : clients_) kept.push_back(client->socket());
    if (state.valid()) {
      succession_.Execute(state, kept);
    } else {
      succession_.Refuse("the state cannot be written");
    }
  } catch (const std::bad_alloc &) {
    succession_.Refuse("no memory");
  }
  RefuseOwed();
}

UniqueFd Server::WriteState() {
  daemon::StateWriter state = NewState();
  notifyserver::Add(state, ServerRecord{listener_.fd(), listener_.lockFd(), Nanoseconds(router_.control().start()),
                                        lastId_, router_.lastRegistration()});
  for (const auto &[key, client] : clients_) {
    if (!client->ended()) notifyserver::Add(state, client->Record());
  }
  if (router_.control().owed()) notifyserver::Add(state, *router_.control().owed());
  return state.Finish();
}

void Server::RefuseOwed() {
  const auto owed = router_.control().owed();
  if (!owed) return;
  for (const auto &[key, client] : clients_) {
    if (client->id() != owed->client) continue;
    try {
      router_.control().PayOwed(*client, ZOR_CONTROL_UNCHANGED, succession_.reason());
    } catch (const std::bad_alloc &) {
      client->End("no memory for a reply to it");
    }
  }
  router_.control().ForgetOwed();
}

}  // namespace zor::notifyserver
