// Memory of an idle daemon and of each server, and the time that each takes to start, beside an empty program and two
// well-known servers of the same kind, as tables in Markdown. Programs that a build does not have are left out; a small
// build is measured with LD_LIBRARY_PATH set to its libraries. Usage: footprint BUILD-DIRECTORY
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "certificates.h"
#include "footprint/program.h"
#include "harness.h"

namespace {

using namespace zor::bench;

constexpr int kStarts = 41;
// What daemons need before they are on the bus.
const std::vector<std::string> kBase = {"msgsvr", "notifyserver", "mosquitto"};
// Servers give back memory when they have been idle for a moment.
constexpr unsigned kSecondsUntilIdle = 12;

// A fresh system root; what runs finds it in the environment.
class Root {
 public:
  Root() : path_(std::filesystem::temp_directory_path() / "zor-footprint.XXXXXX") {
    Require(::mkdtemp(path_.data()) != nullptr, "mkdtemp");
    ::setenv("ZOR_ROOT", path_.c_str(), 1);
  }
  Root(const Root &) = delete;
  Root &operator=(const Root &) = delete;
  ~Root() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  // The path of a file that is made there, which others may not read.
  std::string Write(const std::string &name, const std::string &content) const {
    const std::string path = path_ + "/" + name;
    std::ofstream(path) << content;
    ::chmod(path.c_str(), 0600);
    return path;
  }
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

// A port that nothing listens at.
std::string FreePort() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  Require(::bind(socket, reinterpret_cast<sockaddr *>(&address), size) == 0 &&
              ::getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size) == 0,
          "a free port");
  ::close(socket);
  return std::to_string(ntohs(address.sin_port));
}

// All programs, each after those that it needs.
std::vector<Program> Programs(const std::string &build, const Root &root) {
  const std::string port = FreePort();
  const Authority authority;
  const Issued issued = authority.Issue("DNS:gateway");
  root.Write("authority.pem", authority.certificate());
  root.Write("certificate.pem", issued.certificate);
  root.Write("key.pem", issued.key);
  const std::string broker = root.Write("mosquitto.conf", "listener " + port + " 127.0.0.1\nallow_anonymous true\n");
  const std::string tunnel = root.Write("zortunnel.conf",
                                        "mode = gateway\ncertificate = /certificate.pem\nkey = /key.pem\n"
                                        "authority = /authority.pem\nboards = /boards\nlisten = 127.0.0.1:0\n");
  const std::string bridge = root.Write("zorbridge.conf", "broker = mqtt://127.0.0.1:" + port + "\ngateway = box\n");
  const std::string page = root.Write("zorweb.conf", "listen = 127.0.0.1:0\nlogin = none\n");
  const auto server = [&](const std::string &name) { return build + "/daemons/" + name + "/" + name; };
  const auto own = [](const std::string &name) {
    return std::filesystem::read_symlink("/proc/self/exe").replace_filename(name).string();
  };
  std::vector<Program> programs = {
      {"empty program, C", {own("footprint_empty")}, "ready"},
      {"msgsvr", {server("msgsvr")}, "listening"},
      {"idle daemon, C", {own("footprint_idle")}, "ready"},
      {"notifyserver", {server("notifyserver")}, "listening"},
      {"mlogserver", {server("mlogserver")}, "listening"},
      {"cms", {server("cms")}, "on the bus"},
      {"syslogd", {server("syslogd")}, "on the bus"},
      {"zortunnel", {server("zortunnel"), "--settings", tunnel}, "listening"},
      {"mosquitto", {"/usr/sbin/mosquitto", "-c", broker}, "running"},
      {"zorbridge", {server("zorbridge"), "--settings", bridge}, "on the bus"},
      {"zorweb", {server("zorweb"), "--settings", page}, "on the bus"},
      {"dbus-daemon",
       {"/usr/bin/dbus-daemon", "--session", "--nofork", "--print-address",
        "--address=unix:path=" + root.path() + "/dbus"},
       "unix:"},
  };
  std::erase_if(programs, [](const Program &each) { return !std::filesystem::exists(each.command.front()); });
  return programs;
}

struct Row {
  Footprint memory;
  std::vector<std::string> libraries;
  std::vector<double> startsMs;
};

void MeasureMemory(const std::vector<Program> &programs, std::vector<Row> &rows) {
  std::deque<Running> running;
  for (const Program &program : programs) running.emplace_front(program);
  ::sleep(kSecondsUntilIdle);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Running &one = running[rows.size() - 1 - i];
    rows[i].memory = one.footprint();
    rows[i].libraries = one.libraries();
  }
  // What was started last ends first.
  while (!running.empty()) running.pop_front();
}

// Every program once a round, so that other work on the machine is spread over all of them; first those that the others
// need, each alone.
void MeasureStarts(const std::vector<Program> &programs, std::vector<Row> &rows) {
  const auto isBase = [](const Program &each) {
    return std::find(kBase.begin(), kBase.end(), each.name) != kBase.end();
  };
  std::deque<Running> base;
  for (const bool ofBase : {true, false}) {
    for (const Program &each : programs) {
      if (!ofBase && isBase(each)) base.emplace_front(each);
    }
    for (int round = 0; round < kStarts; ++round) {
      for (std::size_t i = 0; i < programs.size(); ++i) {
        if (isBase(programs[i]) == ofBase) rows[i].startsMs.push_back(Running(programs[i]).startMs());
      }
    }
  }
}

void Print(const std::vector<Program> &programs, const std::vector<Row> &rows) {
  std::printf(
      "| program | private, KiB | of which written | shared, KiB | Pss, KiB | libraries | start, ms | fastest |\n");
  std::printf("|---|---|---|---|---|---|---|---|\n");
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Footprint &memory = rows[i].memory;
    std::printf("| %s | %ld | %ld | %ld | %ld | %zu | %.1f | %.1f |\n", programs[i].name.c_str(),
                memory.privateClean + memory.privateDirty, memory.privateDirty, memory.shared, memory.proportional,
                memory.libraries, Median(rows[i].startsMs), Percentile(rows[i].startsMs, 0));
  }
  std::printf("\n| program | libraries that it has mapped, but for libc and the loader |\n|---|---|\n");
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::printf("| %s |", programs[i].name.c_str());
    for (const std::string &library : rows[i].libraries) {
      if (library.starts_with("libc.so") || library.starts_with("ld-")) continue;
      std::printf(" %s", library.substr(0, library.find(".so")).c_str());
    }
    std::printf(" |\n");
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: footprint BUILD-DIRECTORY\n");
    return 2;
  }
  const Root root;
  const std::vector<Program> programs = Programs(argv[1], root);
  std::vector<Row> rows(programs.size());
  MeasureMemory(programs, rows);
  MeasureStarts(programs, rows);
  Print(programs, rows);
}
