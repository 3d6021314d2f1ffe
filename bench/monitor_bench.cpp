// What zorctl monitor misses of a storm between two daemons, for each of its outputs. Unlike the other benchmarks it
// uses all processors: a monitor that shares one with the server cannot be told from one that is slow. Usage:
// monitor_bench MSGSVR ZORCTL
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zor/msg.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "harness.h"

namespace {

using namespace zor::bench;

constexpr std::uint32_t kStorm = 0x4002;
constexpr double kUnbounded = 1e9;
constexpr int kTurns = 5;

void Ignore(ZOR_MSG_HEAD *) {}

void Receive() {
  Require(ZOR_MSG_Init("receiver") == ZOR_OK, "the receiver joins the bus");
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegMsgProc(kStorm, Ignore, 0, nullptr);
  ZOR_MSG_GetAndDispatch();
}

// So many messages a second, without end.
[[noreturn]] void Storm(double rate, const std::string &body) {
  Require(ZOR_MSG_Init("sender") == ZOR_OK, "the sender joins the bus");
  while (ZOR_MSG_GetNumOfProcesses("receiver") == 0) ::usleep(1000);
  const double start = Now();
  for (double sent = 0;;) {
    for (const double due = (Now() - start) / 1e9 * rate; sent < due; ++sent) {
      (void)ZOR_MSG_SendMsgDataWithData("receiver", kStorm, body.data(), static_cast<std::uint32_t>(body.size()), 0);
    }
    ::usleep(200);
  }
}

struct Result {
  double rate = 0;  // of copies and of what is missed
  double missed = 0;
  double cpu = 0;  // microseconds for a copy
};

double ProcessorSeconds() {
  rusage usage = {};
  ::getrusage(RUSAGE_CHILDREN, &usage);
  const auto seconds = [](const timeval &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// What the monitor reports at its end; it writes to a file.
Result Watch(const std::string &zorctl, const std::string &format, const std::string &root) {
  constexpr double kSeconds = 2;
  const std::string report = root + "/report";
  const std::string command = zorctl + " " + format + " --timeout 2" + " >" + root + "/copies 2>" + report;
  const double before = ProcessorSeconds();
  Require(std::system(command.c_str()) == 0, "the monitor ends well");
  const double used = ProcessorSeconds() - before;
  std::ifstream file(report);
  std::string line;
  double copied = 0, missed = 0;
  while (std::getline(file, line)) {
    if (std::sscanf(line.c_str(), "zorctl monitor: %lf copied, %lf missed", &copied, &missed) == 2) break;
  }
  Require(copied > 0, "the monitor got copies");
  return {(copied + missed) / kSeconds, 100 * missed / (copied + missed), used / copied * 1e6};
}

void Measure(const std::string &zorctl, const System &system, double rate, const std::string &body) {
  const Process sender([&] { Storm(rate, body); });
  Require(std::system((zorctl + " wait sender --timeout 10 >/dev/null").c_str()) == 0, "the sender is on the bus");
  for (const char *format : {"monitor --pcapng -", "monitor", "monitor --json"}) {
    std::vector<double> rates, missed, cpu;
    for (int turn = 0; turn < kTurns; ++turn) {
      const Result result = Watch(zorctl, format, system.root());
      rates.push_back(result.rate);
      missed.push_back(result.missed);
      cpu.push_back(result.cpu);
    }
    std::printf("%-20s %10.0f %10.2f %10.2f\n", format, Median(rates), Median(missed), Median(cpu));
    std::fflush(stdout);
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: monitor_bench MSGSVR ZORCTL\n");
    return 2;
  }
  const System system(argv[1]);
  const Process receiver(Receive);
  std::printf("%-20s %10s %10s %10s\n", "monitor of a storm", "msgs/s", "missed, %", "us each");
  const std::string text(64, 'x'), json = R"({"sensor":"kitchen","temperature":21.5,"humidity":40,"valid":true})";
  for (const double rate : {100e3, 150e3, kUnbounded}) Measure(argv[2], system, rate, text);
  std::printf("with bodies of JSON\n");
  Measure(argv[2], system, 100e3, json);
  return 0;
}
