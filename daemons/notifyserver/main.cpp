// The notification server: routes notifications between modules by their ids.
#include <zor/notify_wire.h>
#include <zor/paths.h>

#include "notifyserver/server.h"
#include "programs/limits.h"
#include "programs/problem_log.h"
#include "programs/server_main.h"
#include "programs/settings.h"

namespace {

namespace bounds = zor::limits::notifyserver;
using zor::notifyserver::Limits;

constexpr zor::daemon::Program kProgram = {
    "notifyserver",
    "Routes notifications between modules, by module id, at " ZOR_PATH_NOTIFY_SERVER ".",
    "/etc/zor/notifyserver.conf",
    "  max_clients = 128         maximum number of connections\n"
    "  max_data_bytes = 8388608  maximum size of a notification's data; a client that sends more is cut off\n"
    "  queue_bytes = 9437184     unread output after which a client is cut off; must exceed max_data_bytes\n",
    "log clients that register and leave, and notifications and replies without a destination",
};

Limits ReadSettings(zor::daemon::Settings &settings) {
  Limits limits = {};
  limits.maxClients = static_cast<size_t>(settings.Number("max_clients", bounds::kClients, 1, bounds::kMostClients));
  limits.maxDataBytes = static_cast<size_t>(
      settings.Number("max_data_bytes", ZOR_NOTIFY_DATA_MAX, bounds::kLeastDataBytes, ZOR_NOTIFY_DATA_MAX));
  limits.queueBytes = static_cast<size_t>(
      settings.Number("queue_bytes", bounds::kQueueBytes, bounds::kQueueOverhead, bounds::kMostQueueBytes));
  if (limits.queueBytes < limits.maxDataBytes + bounds::kQueueOverhead) {
    settings.AddMistake("queue_bytes must exceed max_data_bytes by " + std::to_string(bounds::kQueueOverhead));
  }
  return limits;
}

int Run(const Limits &limits, zor::daemon::ProblemLog &log, bool verbose) {
  zor::notifyserver::Server server(limits, log, verbose);
  if (const auto code = server.Open(); code != zor::daemon::kExitOk) return code;
  zor::daemon::SayListening(kProgram, ZOR_PATH_NOTIFY_SERVER);
  server.Run();
  return zor::daemon::kExitOk;
}

}  // namespace

int main(int count, char **arguments) {
  return zor::daemon::ServerMain(kProgram, count, arguments, ReadSettings, Run);
}
