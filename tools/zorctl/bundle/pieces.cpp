#include "zorctl/bundle/pieces.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <zor/control_wire.h>
#include <zor/paths.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "common/unique_fd.h"
#include "programs/limits.h"
#include "programs/paths.h"
#include "programs/recorder/saved.h"
#include "programs/settings.h"
#include "programs/version.h"
#include "zorctl/bundle/settings_files.h"
#include "zorctl/bus.h"
#include "zorctl/command_line.h"
#include "zorctl/output.h"
#include "zorctl/text.h"
#include "zorctl/verb.h"
#include "zorctl/wait_report.h"

namespace zor::ctl {
namespace {

using Words = std::vector<std::string>;

constexpr Milliseconds kListTime{5000};

// A file of the system; what is missing is said in its place.
void PrintFile(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  Print("== " + path + "\n");
  if (!file) {
    Print(std::string("(") + std::strerror(errno) + ")\n");
    return;
  }
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  Print(text + (text.ends_with('\n') || text.empty() ? "" : "\n"));
}

void PrintVersions() {
  utsname system{};
  ::uname(&system);
  Print(std::string("zorctl ") + daemon::Version() + "\nkernel " + system.sysname + " " + system.release + " " +
        system.version + " " + system.machine + "\n");
  PrintFile("/etc/os-release");
  const Deadline deadline(kListTime);
  Bus bus(deadline);
  const nlohmann::json list = bus.ControlJson(ZOR_MSG_CONTROL_LIST, "", deadline);
  Print("== msgsvr\n" + list.value("server", nlohmann::json::object()).dump(2, ' ', true) + "\n");
}

nlohmann::json List() {
  const Deadline deadline(kListTime);
  Bus bus(deadline);
  return bus.ControlJson(ZOR_MSG_CONTROL_LIST, "", deadline);
}

// Indented: lines that are short are masked well, and read well.
void PrintList() {
  Print(List().dump(2, ' ', true, nlohmann::json::error_handler_t::replace) + "\n");
}

void PrintEveryWhy() {
  const std::vector<daemon::Daemon> daemons = DaemonsOf(List(), Processes::kHere);
  for (const daemon::Daemon &each : daemons) {
    Print("== " + Escape(each.name) + "\n");
    WaitReport(daemons, each).PrintText();
  }
}

void PrintProcesses() {
  for (const auto &client : List().value("clients", nlohmann::json::array())) {
    const std::string process = "/proc/" + std::to_string(client.value("pid", 0));
    Print("==== " + Escape(client.value("name", "")) + "\n");
    for (const char *file : {"/status", "/limits", "/wchan", "/schedstat"}) PrintFile(process + file);
  }
}

void PrintKernel() {
  for (const char *file :
       {"/proc/uptime", "/proc/loadavg", "/proc/meminfo", "/proc/pressure/cpu", "/proc/pressure/io",
        "/proc/pressure/memory", "/proc/sys/fs/file-nr", "/proc/sys/net/unix/max_dgram_qlen",
        "/proc/sys/net/core/wmem_max", "/proc/sys/net/core/rmem_max", "/proc/sys/vm/overcommit_memory"}) {
    PrintFile(file);
  }
  for (const char *path : {"/", "/var", "/run", "/tmp", "/online"}) {
    struct statvfs disk {};
    if (::statvfs(daemon::FixedPath(path).c_str(), &disk) != 0) continue;
    const uint64_t unit = disk.f_frsize;
    Print("disk " + std::string(path) + ": " + std::to_string(disk.f_bavail * unit / 1024) + " of " +
          std::to_string(disk.f_blocks * unit / 1024) + " KiB free, " + std::to_string(disk.f_favail) +
          " files can be made\n");
  }
}

// Each read gives a message; a message that was overwritten meanwhile is an error of that read only.
void PrintKernelLog() {
  const UniqueFd log(::open("/dev/kmsg", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!log.valid()) throw Failure(kExitFailure, std::string("cannot read /dev/kmsg: ") + std::strerror(errno), "");
  std::array<char, 8192> message;
  for (;;) {
    const ssize_t count = ::read(log.get(), message.data(), message.size());
    if (count < 0 && errno == EPIPE) continue;
    if (count <= 0) return;
    Print({message.data(), static_cast<size_t>(count)});
  }
}

std::function<void()> ByVerb(Words words) {
  return [words = std::move(words)] { RunWords(words); };
}

std::function<void()> ByProgram(Words words) {
  return [words = std::move(words)]() mutable {
    std::vector<char *> arguments;
    for (std::string &word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    ::dup2(OutputDescriptor(), STDOUT_FILENO);
    ::execvp(arguments[0], arguments.data());
    throw Failure(kExitFailure, words[0] + ": " + std::strerror(errno), "");
  };
}

// No link: the user of a daemon that writes a log must not lead root to another file.
void PrintLog(const std::string &path) {
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0) {
    throw Failure(kExitFailure, Escape(path) + ": " + std::strerror(errno), "");
  }
  if (!S_ISREG(status.st_mode)) throw Failure(kExitFailure, Escape(path) + ": not a file", "");
  std::array<char, 65536> bytes;
  for (;;) {
    const ssize_t count = ::read(file.get(), bytes.data(), bytes.size());
    if (count < 0) throw Failure(kExitFailure, Escape(path) + ": " + std::strerror(errno), "");
    if (count == 0) return;
    Print({bytes.data(), static_cast<size_t>(count)});
  }
}

std::function<void()> ByFile(const std::string &fixedPath) {
  return [path = daemon::FixedPath(fixedPath)] { PrintLog(path); };
}

// Where msgsvr saves what it has recorded before a crash; its settings are those that it reads by default.
std::string RecorderFile() {
  auto settings = daemon::Settings::FromFile(daemon::FixedPath("/etc/zor/msgsvr.conf"), false);
  return daemon::FixedPath(settings.Path("recorder_file", recorder::kSavedPath));
}

// The latest crash first. Nothing for what was not saved, but what cannot be looked at is a piece that fails.
void AddSavedRecordings(std::vector<Piece> &pieces) {
  const std::string path = RecorderFile();
  for (int place = 1; place <= limits::msgsvr::kRecorderFiles; ++place) {
    const std::string file = recorder::SavedFile(path, place);
    if (::access(file.c_str(), F_OK) != 0 && errno == ENOENT) continue;
    pieces.push_back(
        {"recorder-crash-" + std::to_string(place) + ".pcapng", ByVerb({"recorder", file, "--pcapng", "-"}), true});
  }
}

}  // namespace

std::vector<Piece> BundlePieces() {
  std::vector<Piece> pieces = {
      {"versions.txt", PrintVersions},
      {"list.txt", ByVerb({"list", "-v"})},
      {"list.json", PrintList},
      {"why.txt", PrintEveryWhy},
      {"waits.json", ByVerb({"why", "--all", "--json"})},
      {"access-refused-msgsvr.txt", ByVerb({"access", "refused"})},
      {"access-refused-notifyserver.txt", ByVerb({"access", "refused", "notifyserver"})},
      {"settings.txt", [] { PrintSettings(daemon::FixedPath("/etc/zor")); }},
      {"trace.txt", ByVerb({"trace", "show", "*"})},
      {"metrics.prom", ByVerb({"metrics"})},
      {"notify.txt", ByVerb({"notify", "--list"})},
      {"kernel.txt", PrintKernel},
      {"processes.txt", PrintProcesses},
      {"recorder.pcapng", ByVerb({"recorder", "--pcapng", "-"}), true},
      {"journal.txt",
       ByProgram({"journalctl", "--no-pager", "-q",      "-n",           "5000",      "-o",         "short-iso",
                  "-u",         "msgsvr",     "-u",      "notifyserver", "-u",        "mlogserver", "-u",
                  "cms",        "-u",         "syslogd", "-u",           "zorbridge", "-u",         "zortunnel"})},
      {"log.txt", ByVerb({"log", "--count", "5000"})},
      {"mlog.txt", ByFile("/online/log/mlog.log")},
      {"trace-lines.txt", ByFile(ZOR_PATH_TRACE_FILE)},
      {"boot-track.txt", ByFile(ZOR_PATH_BOOT_TRACK)},
      {"kernel-log.txt", PrintKernelLog},
      {"config-store.txt", ByVerb({"config", "list"})},
  };
  AddSavedRecordings(pieces);
  return pieces;
}

std::string NeverIncluded() {
  return "values of the configuration store: they hold passwords\n"
         "command lines and environments of processes: the same\n"
         "bodies of messages, but for the first bytes that the flight recorder keeps\n"
         "files that are named like secrets, hold private keys, or are named by a setting for one\n";
}

}  // namespace zor::ctl
