#include "msgsvr/server_state.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "msgsvr/bus_fields.h"
#include "msgsvr/recorded_time.h"

namespace zor::msgsvr {

template <typename Fields, daemon::OneOf<ListenersRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.local);
  fields(2, record.lock);
  fields(3, record.tcp);
  fields(4, record.tcpSetting);
  fields(5, record.boards);
  fields(6, record.boardsSetting);
  fields(7, record.recorder);
}

template <typename Fields, daemon::OneOf<RestartRequest> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.client);
  fields(2, record.type);
  fields(3, record.sequence);
}

namespace {

constexpr char kServer[] = "msgsvr";
constexpr uint32_t kFormat = 1;

enum Tag : uint16_t { kListeners = 1, kBus = 2, kClient = 3, kRestart = 4 };

std::string LabelOf(const ClientRecord &record) {
  const auto name = AppName::FromField(record.standing.name);
  return "client " + std::to_string(record.standing.id) + (name ? " " + std::string(name->text()) : "");
}

void AddDescriptor(int number, std::vector<int> &numbers) {
  if (number >= 0) numbers.push_back(number);
}

void AddDescriptors(const ListenersRecord &listeners, std::vector<int> &numbers) {
  for (const int number : {listeners.local, listeners.lock, listeners.tcp, listeners.boards, listeners.recorder})
    AddDescriptor(number, numbers);
}

void AddDescriptors(const ClientRecord &client, std::vector<int> &numbers) {
  AddDescriptor(client.socket, numbers);
  AddDescriptor(client.halfDescriptor, numbers);
  for (const QueuedRecord &message : client.queue) AddDescriptor(message.descriptor, numbers);
}

bool ReadFrom(const std::vector<daemon::Field> &records, ServerState &state) {
  bool hasBus = false;
  for (const daemon::Field &field : records) {
    if (field.tag == kListeners) {
      auto listeners = daemon::ReadRecord<ListenersRecord>(field.bytes);
      if (!listeners) return false;
      state.listeners = std::move(*listeners);
    } else if (field.tag == kBus) {
      auto bus = daemon::ReadRecord<BusRecord>(field.bytes);
      if (!bus) return false;
      hasBus = true;
      state.bus = std::move(*bus);
    } else if (field.tag == kRestart) {
      state.restartFor = daemon::ReadRecord<RestartRequest>(field.bytes);
    } else if (field.tag == kClient) {
      auto client = daemon::ReadRecord<ClientRecord>(field.bytes);
      if (client) {
        state.clients.push_back(std::move(*client));
      } else {
        ++state.damaged;
      }
    }
  }
  return hasBus;
}

}  // namespace

ServerStateWriter::ServerStateWriter(const ListenersRecord &listeners, const BusRecord &bus,
                                     const std::optional<RestartRequest> &restartFor)
    : file_(kServer, kFormat) {
  AddDescriptors(listeners, descriptors_);
  file_.Add(kListeners, listeners);
  file_.Add(kBus, bus);
  if (restartFor) file_.Add(kRestart, *restartFor);
}

void ServerStateWriter::Add(const ClientRecord &client) {
  AddDescriptors(client, descriptors_);
  file_.Add(kClient, client);
}

void AddClients(const ServerParts &server, ServerStateWriter &writer) {
  for (const Client &client : server.bus.clients) {
    if (client.ended) continue;
    ClientRecord record = ClientRecordOf(server.bus, client);
    const auto due = client.registered() ? std::nullopt : server.newcomers.DueOf(client.id);
    if (due) record.registerBy = Nanoseconds(*due);
    for (const PausedSenders::Pause &pause : server.pausedSenders.pauses()) {
      if (pause.sender != &client) continue;
      record.pause = {pause.reader->id, Nanoseconds(pause.until), Nanoseconds(pause.progressAt), pause.progress.flushes,
                      pause.progress.unsent};
    }
    writer.Add(record);
  }
}

std::optional<ServerState> ReadState(std::span<const std::byte> file, std::string &problem) {
  const daemon::StateReader reader(file, kServer, kFormat);
  std::optional<ServerState> state;
  problem = reader.problem();
  if (!reader.valid()) return state;
  if (!ReadFrom(reader.records(), state.emplace())) {
    problem = "the state is damaged";
  } else if (const char *wrong = ProblemOf(state->bus)) {
    problem = wrong;
  }
  if (!problem.empty()) state.reset();
  return state;
}

std::string ProblemOf(const ServerState &state) {
  if (state.damaged > 0) return "the records of " + std::to_string(state.damaged) + " clients are damaged";
  std::unordered_set<uint64_t> ids;
  for (const ClientRecord &client : state.clients) {
    if (const char *problem = ProblemOf(client)) return LabelOf(client) + ": " + problem;
    if (!ids.insert(client.standing.id).second) return LabelOf(client) + ": its number is another's";
  }
  std::vector<int> descriptors;
  AddDescriptors(state.listeners, descriptors);
  for (const ClientRecord &client : state.clients) AddDescriptors(client, descriptors);
  std::unordered_set<int> known;
  for (const int number : descriptors) {
    if (!known.insert(number).second) return "descriptor " + std::to_string(number) + " has two owners";
  }
  return {};
}

}  // namespace zor::msgsvr
