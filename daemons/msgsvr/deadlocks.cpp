#include "msgsvr/deadlocks.h"

#include <algorithm>

#include "programs/process_state.h"

namespace zor::msgsvr {
namespace {

constexpr uint32_t kFirstPauseMs = 1000;
constexpr uint32_t kLongestPauseMs = 16'000;

// The request that may be what the client waits for; null if it sent something else since.
const PendingRequests::Request *LatestRequest(const Client &client) {
  const auto &requests = client.pending.requests();
  if (client.ended || !client.registered() || requests.empty()) return nullptr;
  const PendingRequests::Request &request = requests.back();
  return request.ordinal == client.ordinal() && daemon::WaitsForReply(request.type, true, false) ? &request : nullptr;
}

}  // namespace

bool Deadlocks::Look() {
  edges_.clear();  // the latest look may have been given up
  kernel_.reset();
  bool unsettled = CollectEdges();
  for (Circle &circle : circles_) circle.lasts = false;
  size_t walk = 0;
  for (Edge &edge : edges_) {
    if (edge.walk == 0) Walk(edge, ++walk);
  }
  std::erase_if(circles_, [](const Circle &circle) { return !circle.lasts; });
  for (const Circle &circle : circles_) unsettled = unsettled || !circle.named;
  edges_.clear();
  kernel_.reset();
  return unsettled;
}

// Whether some requests are still too young to count.
bool Deadlocks::CollectEdges() {
  bool someYoung = false;
  for (const Client &client : bus_.clients) {
    const PendingRequests::Request *request = LatestRequest(client);
    const Client *to = request == nullptr ? nullptr : bus_.names.Oldest(request->to);
    if (to == nullptr) continue;
    if (bus_.nowMs - request->sentMs < bus_.settings.deadlockSeconds * 1000) {
      someYoung = true;
    } else {
      edges_.push_back({&client, to, request});
    }
  }
  return someYoung;
}

Deadlocks::Edge *Deadlocks::Find(const Client &from) {
  const auto edge = std::lower_bound(edges_.begin(), edges_.end(), from.id,
                                     [](const Edge &each, uint64_t id) { return each.from->id < id; });
  return edge == edges_.end() || edge->from != &from ? nullptr : &*edge;
}

// A client waits for one other at most, so a walk that meets itself has found a circle, and each is found once.
void Deadlocks::Walk(Edge &start, size_t walk) {
  Edge *edge = &start;
  for (; edge != nullptr && edge->walk == 0; edge = Find(*edge->to)) edge->walk = walk;
  if (edge != nullptr && edge->walk == walk) Examine(*edge);
}

void Deadlocks::Examine(const Edge &member) {
  std::vector<const Edge *> circle;
  const Edge *edge = &member;
  do {
    circle.push_back(edge);
    edge = Find(*edge->to);
  } while (edge != &member);
  const auto oldest = std::ranges::min_element(circle, {}, [](const Edge *each) { return each->from->id; });
  std::rotate(circle.begin(), oldest, circle.end());
  Members members;
  for (const Edge *each : circle) members.push_back({each->from->id, each->request->ordinal});
  Circle &known = FindCircle(members);
  known.lasts = true;
  if (known.named || bus_.nowMs - known.lookedMs < known.pauseMs) return;
  known.lookedMs = bus_.nowMs;
  known.pauseMs = std::clamp(2 * known.pauseMs, kFirstPauseMs, kLongestPauseMs);
  known.named = Name(circle);
}

Deadlocks::Circle &Deadlocks::FindCircle(const Members &members) {
  const auto found = std::ranges::find(circles_, members, &Circle::members);
  return found == circles_.end() ? circles_.emplace_back(Circle{members}) : *found;
}

// False if they do not wait for each other after all.
bool Deadlocks::Name(const std::vector<const Edge *> &circle) {
  if (!kernel_) kernel_.emplace();
  std::vector<daemon::Daemon> daemons;
  daemons.reserve(circle.size());
  for (const Edge *edge : circle) daemons.push_back(Describe(*edge));
  const daemon::WaitChain chain = daemon::FollowWaits(daemons, daemons.front());
  if (!chain.cycle) return false;
  bus_.log.Print("%s", daemon::CycleText(chain).c_str());
  return true;
}

daemon::Daemon Deadlocks::Describe(const Edge &edge) {
  const Client &client = *edge.from;
  daemon::Daemon described;
  described.name = client.name.text();
  daemon::ProcessState process;
  if (client.peer.local) process = daemon::StateOf(described.pid = client.peer.pid);
  described.state = process.letter;
  const Deliveries::Unread unread = UnreadOf(client, *kernel_, bus_.nowMs);
  described.unread = unread.messages;
  described.unreadAtLeast = unread.atLeast;
  described.unreadMs = unread.oldestMs;
  const PendingRequests::Request &request = *edge.request;
  described.pending.push_back({std::string(request.to.text()), request.type, request.sequence,
                               bus_.nowMs - request.sentMs,
                               *daemon::WaitsForReply(request.type, true, process.inLoop)});
  return described;
}

}  // namespace zor::msgsvr
