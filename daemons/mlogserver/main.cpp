// mlogserver: the logging daemon.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/mlog_wire.h>
#include <zor/paths.h>

#include <cstdio>
#include <string>

#include "common/unique_fd.h"
#include "mlogserver/circular_log.h"
#include "mlogserver/server.h"
#include "mlogserver/stat_table.h"
#include "programs/capability.h"
#include "programs/limits.h"
#include "programs/local_socket.h"
#include "programs/paths.h"
#include "programs/problem_log.h"
#include "programs/server_main.h"
#include "programs/settings.h"
#include "programs/stop_signal.h"

namespace zor::mlogserver {
namespace {

constexpr char kSocketPath[] = ZOR_PATH_MLOG_DIR ZOR_MLOG_SERVER_NAME;
constexpr char kDefaultLogFile[] = "/online/log/mlog.log";

// Every daemon creates a socket there, whatever user it runs as; as in /tmp, users can remove only their own.
constexpr mode_t kClientDirectoryMode = 01777;

constexpr daemon::Program kProgram = {
    "mlogserver",
    "Keeps the log lines and statistics of the system's daemons.",
    "/etc/zor/mlogserver.conf",
    "  log_file = /online/log/mlog.log  the circular file, 2 MiB at most\n"
    "  sender_in_line = yes             begin each line with the process and user that sent it\n"
    "  user_lines = 1000                lines that a user may write at once ...\n"
    "  user_rate = 50                   ... and then in a second\n"
    "  max_statistics = 256             maximum number of statistics\n"
    "  user_statistics = 192            maximum number of one user's statistics\n",
    "print the progress lines of the log file on standard output",
    false,  // there is no state to hand over
    kSocketPath,
    kClientDirectoryMode,
};

constexpr mode_t kSocketMode = 0666;
// Not every user may read the log.
constexpr mode_t kUmask = 0027;

// Discards standard output for the object's lifetime: the library reports every write to the circular file there, which
// operators want to see only on request.
class MutedOutput {
 public:
  explicit MutedOutput(bool muted) {
    if (!muted) return;
    std::fflush(stdout);
    saved_.reset(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    const UniqueFd nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (nowhere.valid()) ::dup2(nowhere.get(), STDOUT_FILENO);
  }
  MutedOutput(const MutedOutput &) = delete;
  MutedOutput &operator=(const MutedOutput &) = delete;
  ~MutedOutput() {
    std::fflush(stdout);
    if (saved_.valid()) ::dup2(saved_.get(), STDOUT_FILENO);
  }

 private:
  UniqueFd saved_;
};

struct ServerSettings {
  std::string logFile;
  Rules rules;
  size_t maxStatistics;
  size_t userStatistics;
};

ServerSettings ReadSettings(daemon::Settings &settings) {
  namespace most = limits::mlogserver;
  const auto number = [&](const char *key, uint32_t fallback, uint32_t largest) {
    return static_cast<uint32_t>(settings.Number(key, fallback, 1, largest));
  };
  return {settings.Path("log_file", kDefaultLogFile),
          {settings.Flag("sender_in_line", true), number("user_lines", most::kUserLines, most::kMostUserLines),
           number("user_rate", most::kUserRate, most::kMostUserLines)},
          number("max_statistics", most::kStatistics, most::kMostStatistics),
          number("user_statistics", most::kUserStatistics, most::kMostStatistics)};
}

bool OpenLog(const std::string &fixedPath, bool muted, CircularLog *log) {
  const MutedOutput output(muted);
  const std::string path = daemon::FixedPath(fixedPath);
  return !path.empty() && daemon::MakeDirectory(daemon::ParentOf(fixedPath)) && log->Open(path);
}

int Run(const ServerSettings &settings, daemon::ProblemLog &problems, daemon::Start &start) {
  ::umask(kUmask);
  // Else a link in the place of the log, which all daemons may put there, would lead it to any file.
  const daemon::LaidDownCapability anySocket(CAP_DAC_OVERRIDE);
  if (!anySocket.valid()) problems.Print("CAP_DAC_OVERRIDE cannot be laid down, and is in force for all files");
  daemon::StopSignal stop;
  if (!stop.valid()) {
    problems.PrintErrno("cannot wait for signals");
    return daemon::kExitFailure;
  }
  if (!daemon::MakeDirectory(ZOR_PATH_MLOG_DIR, kClientDirectoryMode)) {
    problems.PrintErrno("%s", ZOR_PATH_MLOG_DIR);
    return daemon::kExitFailure;
  }
  daemon::LocalSocket socket;
  if (const daemon::ExitCode code = socket.OpenPassed(kSocketPath, SOCK_DGRAM, kSocketMode, start.passed, problems);
      code != daemon::kExitOk) {
    return code;
  }
  CircularLog log;
  if (!OpenLog(settings.logFile, !start.verbose, &log)) {
    problems.PrintErrno("%s", settings.logFile.c_str());
    return daemon::kExitFailure;
  }
  StatTable stats(settings.maxStatistics, settings.userStatistics);
  Server server(socket.fd(), settings.rules, log, stats, anySocket, problems);
  daemon::SayListening(kProgram, kSocketPath);  // nothing that may fail comes after it
  const MutedOutput output(!start.verbose);
  return server.Run(stop);
}

}  // namespace
}  // namespace zor::mlogserver

int main(int count, char **arguments) {
  using namespace zor::mlogserver;  // NOLINT(google-build-using-namespace): the program's own names
  return zor::daemon::ServerMain(kProgram, count, arguments, ReadSettings, Run);
}
