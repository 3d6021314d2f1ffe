// The notification server: routes notifications between modules by their ids.
#include <malloc.h>
#include <zor/notify_wire.h>
#include <zor/paths.h>

#include <span>
#include <string>
#include <utility>

#include "notifyserver/server.h"
#include "programs/access/server_access.h"
#include "programs/holdings.h"
#include "programs/limits.h"
#include "programs/problem_log.h"
#include "programs/server_main.h"
#include "programs/settings.h"

namespace {

constexpr int kMappedBlock = 128 * 1024;

namespace bounds = zor::limits::notifyserver;
using zor::notifyserver::Limits;

constexpr zor::daemon::Program kProgram = {
    "notifyserver",
    "Routes notifications between modules, by module id, at " ZOR_PATH_NOTIFY_SERVER ".",
    "/etc/zor/notifyserver.conf",
    "  max_clients = 128         maximum number of connections\n"
    "  user_clients = 96         maximum number of connections of one user\n"
    "  register_seconds = 10     time for a connection to register, before it is cut off\n"
    "  stop_seconds = 5          time to deliver what is queued when the server is stopped\n"
    "  max_data_bytes = 8388608  maximum size of a notification's data; a client that sends more is cut off\n"
    "  queue_bytes = 9437184     unread output after which a client is cut off; must exceed max_data_bytes\n"
    "  user_bytes = 33554432     memory that one user's clients may take up before the largest is cut off; at least\n"
    "                            four times max_data_bytes\n"
    "  memory_bytes = 67108864   memory that all clients may take up before the largest is cut off; at least "
    "user_bytes\n",
    "log clients that register and leave, and notifications and replies without a destination",
    true,
    ZOR_PATH_NOTIFY_SERVER,
    01777,  // every module creates a socket beside the server's
};

// A frame under way may take twice its size while its buffer grows, and as much again in a queue.
constexpr size_t kLeastShare = 4;

void ReadShares(zor::daemon::Settings &settings, Limits &limits) {
  limits.userBytes = static_cast<size_t>(
      settings.Number("user_bytes", bounds::kUserBytes, bounds::kLeastShareBytes, bounds::kMostShareBytes));
  limits.memoryBytes = static_cast<size_t>(
      settings.Number("memory_bytes", bounds::kMemoryBytes, bounds::kLeastShareBytes, bounds::kMostShareBytes));
  if (limits.userBytes < kLeastShare * limits.maxDataBytes) {
    settings.AddMistake("user_bytes must be at least four times max_data_bytes");
  }
  if (limits.memoryBytes < limits.userBytes) settings.AddMistake("memory_bytes must be at least user_bytes");
}

Limits ReadSettings(zor::daemon::Settings &settings) {
  Limits limits = {};
  limits.maxClients = static_cast<size_t>(settings.Number("max_clients", bounds::kClients, 1, bounds::kMostClients));
  limits.userClients =
      static_cast<size_t>(settings.Number("user_clients", bounds::kUserClients, 1, bounds::kMostClients));
  limits.registration = std::chrono::seconds(
      settings.Number("register_seconds", bounds::kRegistrationTime.count(), 1, bounds::kMostRegistrationSeconds));
  limits.stop =
      std::chrono::seconds(settings.Number("stop_seconds", bounds::kStopSeconds, 0, bounds::kMostStopSeconds));
  limits.maxDataBytes = static_cast<size_t>(
      settings.Number("max_data_bytes", ZOR_NOTIFY_DATA_MAX, bounds::kLeastDataBytes, ZOR_NOTIFY_DATA_MAX));
  limits.queueBytes = static_cast<size_t>(
      settings.Number("queue_bytes", bounds::kQueueBytes, bounds::kQueueOverhead, bounds::kMostQueueBytes));
  if (limits.queueBytes < limits.maxDataBytes + bounds::kQueueOverhead) {
    settings.AddMistake("queue_bytes must exceed max_data_bytes by " + std::to_string(bounds::kQueueOverhead));
  }
  ReadShares(settings, limits);
  return limits;
}

int Run(const Limits &limits, zor::daemon::ProblemLog &log, zor::daemon::Start &start) {
  // Long frames are given back to the system when they are done; the C library would raise this with each.
  ::mallopt(M_MMAP_THRESHOLD, kMappedBlock);
  auto rules = zor::access::LoadRules(log);
  if (!rules) return zor::daemon::kExitSettings;
  // Before the server opens descriptors of its own.
  auto inherited = start.inherited ? zor::daemon::DescriptorSet::OfProcess(start.inherited->state.get())
                                   : zor::daemon::DescriptorSet();
  const auto journal = zor::notifyserver::NewJournal(limits, log);
  if (journal == nullptr) return zor::daemon::kExitFailure;
  zor::notifyserver::Server server(limits, std::move(*rules), *journal, start.image, log, start.verbose);
  if (const auto code = server.Open(start, std::move(inherited)); code != zor::daemon::kExitOk) return code;
  zor::daemon::SayListening(kProgram, ZOR_PATH_NOTIFY_SERVER);
  server.Run();
  return zor::daemon::kExitOk;
}

std::string ProblemOf(const zor::notifyserver::ServerState &state, const Limits &limits) {
  if (std::string problem = zor::notifyserver::ProblemOf(state); !problem.empty()) return problem;
  if (state.clients.size() > zor::notifyserver::MostTakenOver(limits)) {
    return "max_clients is too small: there are " + std::to_string(state.clients.size()) + " clients";
  }
  zor::daemon::Holdings holdings;
  for (const zor::notifyserver::ClientRecord &client : state.clients) {
    holdings.AddInput(client.standing.uid, client.input.size());
    for (const zor::notifyserver::QueuedRecord &message : client.queue) {
      holdings.AddMessage(client.standing.uid, message.bytes.size());
    }
  }
  return holdings.ProblemWith(limits.userBytes, limits.memoryBytes);
}

int CheckState(const Limits &limits, zor::daemon::ProblemLog &log, std::span<const std::byte> bytes) {
  if (!zor::access::LoadRules(log)) return zor::daemon::kExitSettings;
  std::string problem;
  const auto state = zor::notifyserver::ReadState(bytes, problem);
  if (state) problem = ProblemOf(*state, limits);
  if (problem.empty()) return zor::daemon::kExitOk;
  log.Print("%s", problem.c_str());
  return zor::daemon::kExitState;
}

}  // namespace

int main(int count, char **arguments) {
  return zor::daemon::ServerMain(kProgram, count, arguments, ReadSettings, Run, CheckState);
}
