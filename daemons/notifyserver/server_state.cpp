#include "notifyserver/server_state.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace zor::notifyserver {

template <typename Fields, daemon::OneOf<ServerRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.listener);
  fields(2, record.lock);
  fields(3, record.started);
  fields(4, record.lastId);
  fields(5, record.lastRegistration);
}

template <typename Fields, daemon::OneOf<OwedReplyRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.client);
  fields(2, record.type);
  fields(3, record.sequence);
}

namespace {

constexpr char kServer[] = "notifyserver";
constexpr uint32_t kFormat = 1;

enum Tag : uint16_t { kServerTag = 1, kClientTag = 2, kOwedTag = 3 };

bool ReadFrom(const std::vector<daemon::Field> &records, ServerState &state) {
  bool hasServer = false;
  for (const daemon::Field &field : records) {
    if (field.tag == kServerTag) {
      auto server = daemon::ReadRecord<ServerRecord>(field.bytes);
      if (!server) return false;
      state.server = *server;
      hasServer = true;
    } else if (field.tag == kOwedTag) {
      state.owed = daemon::ReadRecord<OwedReplyRecord>(field.bytes);
    } else if (field.tag == kClientTag) {
      auto client = daemon::ReadRecord<ClientRecord>(field.bytes);
      if (client) {
        state.clients.push_back(std::move(*client));
      } else {
        ++state.damaged;
      }
    }
  }
  return hasServer;
}

}  // namespace

daemon::StateWriter NewState() {
  return daemon::StateWriter(kServer, kFormat);
}

void Add(daemon::StateWriter &state, const ServerRecord &record) {
  state.Add(kServerTag, record);
}

void Add(daemon::StateWriter &state, const ClientRecord &record) {
  state.Add(kClientTag, record);
}

void Add(daemon::StateWriter &state, const OwedReplyRecord &record) {
  state.Add(kOwedTag, record);
}

std::optional<ServerState> ReadState(std::span<const std::byte> file, std::string &problem) {
  const daemon::StateReader reader(file, kServer, kFormat);
  std::optional<ServerState> state;
  problem = reader.problem();
  if (!reader.valid()) return state;
  if (!ReadFrom(reader.records(), state.emplace())) {
    problem = "the state is damaged";
    state.reset();
  }
  return state;
}

std::string ProblemOf(const ServerState &state) {
  if (state.damaged > 0) return "the records of " + std::to_string(state.damaged) + " clients are damaged";
  if (state.server.started < 0 || state.server.listener < 0 || state.server.lock < 0) return "the state is incomplete";
  std::unordered_set<uint64_t> ids;
  std::unordered_set<int> descriptors = {state.server.listener, state.server.lock};
  for (const ClientRecord &client : state.clients) {
    const std::string label = "client " + std::to_string(client.standing.id) + ": ";
    if (const char *problem = ProblemOf(client)) return label + problem;
    if (!ids.insert(client.standing.id).second) return label + "its number is another's";
    if (!descriptors.insert(client.socket).second) return label + "its descriptor has another owner";
  }
  return {};
}

}  // namespace zor::notifyserver
