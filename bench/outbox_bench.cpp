// The queue of the bridge: what keeping a record costs without and with the disk, how fast a backlog drains, and how
// many bytes reach the flash for each byte of a record. Below TMPDIR, which should be on a disk.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "harness.h"
#include "programs/problem_log.h"
#include "zorbridge/outbox.h"

namespace {

using namespace zor::bench;
using zor::bridge::Outbox;

constexpr std::size_t kRecords = 1'000'000;
constexpr std::size_t kRecordBytes = 200;
constexpr std::size_t kInFlight = 64;

const std::string g_topic = "event/lan/link-changed";
std::string g_members;  // together with the topic the bytes of a record

std::string TemporaryDirectory() {
  std::string path = (std::filesystem::temp_directory_path() / "outbox_bench.XXXXXX").string();
  Require(::mkdtemp(path.data()) != nullptr, "make a directory");
  return path;
}

Outbox::Options OptionsFor(const std::string &directory) {
  Outbox::Options options;
  options.path = directory + "/queue.db";
  options.gateway = "bench";
  options.queueBytes = std::uint64_t{4} << 30;
  options.groupBytes = 256u << 10;
  options.groupTime = std::chrono::hours(1);
  options.dailyBytes = std::uint64_t{1} << 40;
  return options;
}

// Nanoseconds for each.
double Keep(Outbox &outbox, std::size_t count) {
  const double start = Now();
  for (std::size_t i = 0; i < count; ++i) outbox.Keep(g_topic, "event/lan", g_members);
  return (Now() - start) / static_cast<double>(count);
}

// Publishes and acknowledges all there is, as a line with so many in flight would. Returns how many.
std::size_t Drain(Outbox &outbox) {
  std::vector<std::uint64_t> inFlight(kInFlight);
  std::size_t sent = 0;
  std::size_t acknowledged = 0;
  for (;;) {
    const Outbox::Record *next = sent - acknowledged < kInFlight ? outbox.Next() : nullptr;
    if (next != nullptr) {
      inFlight[sent++ % kInFlight] = next->number;
      outbox.HandedOut();
    } else if (acknowledged == sent) {
      return sent;
    } else {
      outbox.Acknowledged(inFlight[acknowledged++ % kInFlight]);
    }
  }
}

void Memory(Outbox &outbox) {
  constexpr std::size_t kBatch = 500;  // less than a group
  std::vector<double> keeps;
  std::vector<double> drains;
  for (int round = 0; round < 200; ++round) {
    keeps.push_back(Keep(outbox, kBatch));
    const double start = Now();
    Require(Drain(outbox) == kBatch, "drain the memory");
    drains.push_back((Now() - start) / kBatch);
  }
  Require(outbox.figures().records == 0, "acknowledge all");
  std::printf("in memory: Keep %.0f ns, publish and acknowledge %.0f ns\n", Median(keeps), Median(drains));
}

void File(Outbox &outbox) {
  const double bytes = static_cast<double>(kRecords * kRecordBytes);
  const auto before = outbox.figures().writtenToday;
  const double keep = Keep(outbox, kRecords);
  outbox.Write();
  const auto written = outbox.figures().writtenToday - before;
  Require(outbox.figures().givenUp == 0 && outbox.figures().records == kRecords, "keep all");
  std::printf("with writing: Keep %.0f ns (%zu records: %.1f s), %.2f bytes written per byte\n", keep, kRecords,
              keep * kRecords / 1e9, static_cast<double>(written) / bytes);
  const double start = Now();
  Require(Drain(outbox) == kRecords, "drain the file");
  outbox.Write();
  const double drain = Now() - start;
  const auto all = outbox.figures().writtenToday - before;
  std::printf("from the file: publish and acknowledge %.0f ns (%.1f s), with that %.2f bytes written per byte\n",
              drain / kRecords, drain / 1e9, static_cast<double>(all) / bytes);
}

}  // namespace

int main() {
  const std::string directory = TemporaryDirectory();
  g_members = "\"module\":\"lan\",\"name\":\"link-changed\",\"type\":\"0x2DA10\",\"event\":{\"text\":\"";
  g_members.append(kRecordBytes - g_topic.size() - g_members.size() - 2, 'x').append("\"}");
  zor::daemon::ProblemLog problems("outbox_bench");
  {
    Outbox outbox;
    Require(outbox.Open(OptionsFor(directory), problems) == zor::daemon::kExitOk, "open the queue");
    Memory(outbox);
    File(outbox);
  }
  std::printf("file after a clean stop: %ju bytes\n",
              static_cast<std::uintmax_t>(std::filesystem::file_size(directory + "/queue.db")));
  std::filesystem::remove_all(directory);
}
