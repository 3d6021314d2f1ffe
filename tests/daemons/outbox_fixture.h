// A queue of the bridge, with a clock of its own, over a file system that can fail.
#ifndef TESTS_DAEMONS_OUTBOX_FIXTURE_H
#define TESTS_DAEMONS_OUTBOX_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "failing_files.h"
#include "support/temp_root.h"
#include "zorbridge/outbox.h"

namespace zor::test {

using bridge::Outbox;

constexpr std::chrono::seconds kGroupTime{10};

// A record as the broker has it. Its members tell which one it is.
struct Published {
  std::string stream;
  std::uint64_t number;
  std::string topic;
  nlohmann::json payload;

  int id() const { return payload.value("id", -1); }
  std::string identity() const { return stream + ":" + std::to_string(number); }
};

inline Published Publish(const Outbox::Record &record) {
  return {record.stream, record.number, record.topic, nlohmann::json::parse(record.payload)};
}

class OutboxTest : public testing::Test {
 protected:
  OutboxTest() {
    InstallFailingFiles();
    options_.path = root_.Path("/queue.db");
    options_.gateway = "gw \"7\"";
    options_.queueBytes = 64u << 20;
    options_.groupBytes = 64u << 10;
    options_.groupTime = kGroupTime;
    options_.dailyBytes = std::uint64_t{1} << 40;
    options_.now = [this] { return now_; };
    Open();
  }

  void Open() { ASSERT_EQ(outbox_.Open(options_, problems_), daemon::kExitOk); }
  void Reopen() {
    outbox_.Close();
    Open();
  }

  // Keeps records that count on, with so many bytes in the topic, which need not be parsed.
  void Keep(int count = 1, std::size_t bytes = 100, const std::string &group = "event/lan") {
    Keep(outbox_, count, bytes, group);
  }
  void Keep(Outbox &outbox, int count, std::size_t bytes, const std::string &group = "event/lan") {
    const std::string topic = group + '/' + std::string(bytes, 'x');
    for (; count > 0; --count) outbox.Keep(topic, group, "\"id\":" + std::to_string(kept_++));
  }

  // Publishes and acknowledges up to so many.
  static std::vector<Published> Drain(Outbox &outbox, std::size_t most = SIZE_MAX) {
    std::vector<Published> published;
    while (published.size() < most) {
      const Outbox::Record *next = outbox.Next();
      if (next == nullptr) break;
      published.push_back(Publish(*next));
      outbox.HandedOut();
      outbox.Acknowledged(published.back().number);
    }
    return published;
  }
  std::vector<Published> Drain(std::size_t most = SIZE_MAX) { return Drain(outbox_, most); }

  // That these are the records from one on, in order.
  static void ExpectIds(const std::vector<Published> &published, int first, int end) {
    ASSERT_EQ(published.size(), static_cast<std::size_t>(end - first));
    for (const Published &each : published) EXPECT_EQ(each.id(), first++);
  }

  void Pass(Outbox::Clock::duration time) {
    now_ += time;
    if (const auto due = outbox_.Due(); due && *due <= now_) outbox_.Write();
  }

  TempRoot root_;
  Outbox::Clock::time_point now_{std::chrono::hours(1000)};
  Outbox::Options options_;
  daemon::ProblemLog problems_{"zorbridge"};
  Outbox outbox_;
  int kept_ = 0;
};

}  // namespace zor::test

#endif
