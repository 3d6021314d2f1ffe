// Trace calls that are filtered out or written, and log lines, beside the same work done by hand.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/mlog.h>
#include <zor/platform/file.h>
#include <zor/trace.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "harness.h"

namespace {

using namespace zor::bench;

constexpr off_t kFileMax = 1 << 20;

void SetSixteenModules() {
  for (int i = 0; i < 15; ++i) ZOR_TRACE_SetPackageLevel(("module" + std::to_string(i)).c_str(), ZOR_TRACE_INFO);
  ZOR_TRACE_SetPackageLevel("msg", ZOR_TRACE_ERROR);
}

void FilteredOut() {
  std::vector<double> costs;
  for (int round = 0; round < kRounds; ++round) {
    costs.push_back(TimeAll(1000000, [] {
      ZOR_TRACE_PrintInfo("trace_bench.cpp", __LINE__, 0, "msg", ZOR_TRACE_INFO, "type:[0x%x]", 1u);
    }));
  }
  std::fprintf(stderr, "%-34s %10.1f ns\n", "filtered out, 16 modules set", Median(costs));
}

// Writes a trace line with one fprintf and fflush; the file at path, if given, is truncated at 1 MiB like the trace
// file.
void WriteByHand(FILE *stream, const char *path) {
  struct timespec wall = {};
  struct timespec monotonic = {};
  ::clock_gettime(CLOCK_REALTIME, &wall);
  ::clock_gettime(CLOCK_MONOTONIC, &monotonic);
  std::fprintf(stream, "\r\n[(%s)%-.8ld.%-.6ld %-.8ld.%-.6ld %s:%d:%s %s:%d]: type:[0x%x]", "info",
               static_cast<long>(wall.tv_sec), wall.tv_nsec / 1000, static_cast<long>(monotonic.tv_sec),
               monotonic.tv_nsec / 1000, "", 1, "module3", "trace_bench.cpp", 1, 1u);
  std::fflush(stream);
  struct stat status = {};
  if (path == nullptr) return;
  Require(::stat(path, &status) == 0, "stat");
  if (status.st_size >= kFileMax) Require(::ftruncate(::fileno(stream), 0) == 0, "ftruncate");
}

void WriteTrace() {
  ZOR_TRACE_PrintInfo("trace_bench.cpp", __LINE__, 0, "module3", ZOR_TRACE_INFO, "type:[0x%x]", 1u);
}

void Written(const char *title, FILE *byHand, const char *path) {
  std::vector<double> ours, ratio;
  for (int round = 0; round < kRounds; ++round) {
    const double theirs = TimeAll(20000, [&] { WriteByHand(byHand, path); });
    const double mine = TimeAll(20000, WriteTrace);
    ours.push_back(mine);
    ratio.push_back(mine / theirs);
  }
  std::fprintf(stderr, "%-34s %10.0f ns %8.2f\n", title, Median(ours), Median(ratio));
}

void WrittenToFile(const std::string &root) {
  const std::string path = root + "/online/log/by_hand.log";
  FILE *byHand = std::fopen(path.c_str(), "ab");
  Require(byHand != nullptr, "open a file");
  ZOR_TRACE_SetOutput(1);
  WriteTrace();
  Written("written to the file, with its stat", byHand, path.c_str());
  ZOR_TRACE_SetOutput(0);
  std::fclose(byHand);
}

// Redirects standard output to a file, so that the terminal's speed does not count.
void WrittenToStdout(const std::string &root) {
  const int saved = ::dup(1);
  const int file = ::open((root + "/stdout.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  Require(saved >= 0 && file >= 0 && ::dup2(file, 1) == 1, "redirect standard output");
  ZOR_TRACE_SetOutput(0);
  Written("written, beside fprintf and fflush", stdout, nullptr);
  ::dup2(saved, 1);
  ::close(saved);
  ::close(file);
}

// The system calls of one log line: create and bind a socket, send one datagram, close and remove it.
void LogByHand(const sockaddr_un &own, const sockaddr_un &server) {
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ::unlink(own.sun_path);
  const auto *name = reinterpret_cast<const sockaddr *>(&own);
  const auto *peer = reinterpret_cast<const sockaddr *>(&server);
  Require(::bind(fd, name, sizeof own) == 0, "bind");
  char datagram[1024] = {1};
  struct timespec now = {};
  ::clock_gettime(CLOCK_BOOTTIME, &now);
  const int length = std::snprintf(datagram + 8, 1016, "[%011lld][%s][%s]:value %d\n", 0LL, "bench", "INFO", 5) + 1;
  std::memcpy(datagram + 4, &length, sizeof length);
  Require(::sendto(fd, datagram, 8 + static_cast<std::size_t>(length), 0, peer, sizeof server) > 0, "sendto");
  ::close(fd);
  ::unlink(own.sun_path);
}

sockaddr_un AddressOf(const char *path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  Require(ZOR_UTIL_FixedPath(path, address.sun_path, sizeof address.sun_path) != 0, "a path that fits");
  return address;
}

void LogLines() {
  const sockaddr_un server = AddressOf("/var/mlog/mlogServer");
  const sockaddr_un own = AddressOf("/var/mlog/by_hand");
  const int sink = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  Require(::bind(sink, reinterpret_cast<const sockaddr *>(&server), sizeof server) == 0, "bind");
  const Process reader([sink] {
    char datagram[1024];
    while (::recv(sink, datagram, sizeof datagram, 0) > 0) {
    }
  });
  std::vector<double> ours, ratio;
  for (int round = 0; round < kRounds; ++round) {
    const double theirs = TimeAll(3000, [&] { LogByHand(own, server); });
    const double mine = TimeAll(3000, [] { mlog_print("bench", ZOR_MLOG_INFO, "value %d", 5); });
    ours.push_back(mine);
    ratio.push_back(mine / theirs);
  }
  std::fprintf(stderr, "%-34s %10.0f ns %8.2f\n", "log line, beside the same calls", Median(ours), Median(ratio));
}

}  // namespace

int main() {
  PinToOneProcessor();
  char root[] = "/tmp/zor-bench.XXXXXX";
  Require(::mkdtemp(root) != nullptr, "mkdtemp");
  ::setenv("ZOR_ROOT", root, 1);
  std::filesystem::create_directories(std::string(root) + "/online/log");
  std::filesystem::create_directories(std::string(root) + "/var/mlog");
  std::fprintf(stderr, "trace and log (median of %d rounds)\n", kRounds);
  SetSixteenModules();
  FilteredOut();
  WrittenToStdout(root);
  WrittenToFile(root);
  LogLines();
  std::filesystem::remove_all(root);
  return 0;
}
