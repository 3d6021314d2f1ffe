// The bridge's queue: order and identity across stops, power cuts and failures, and its bounds.
#include "zorbridge/outbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "failing_files.h"
#include "support/capture.h"
#include "support/failing_alloc.h"
#include "support/temp_root.h"
#include "zorbridge/daily_writes.h"

namespace zor::test {
namespace {

namespace fs = std::filesystem;
using bridge::Outbox;
using testing::HasSubstr;
using testing::Not;

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

Published Publish(const Outbox::Record &record) {
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

TEST_F(OutboxTest, WhatIsAcknowledgedInTimeNeverReachesTheDisk) {
  const auto before = outbox_.figures().writtenToday;
  for (int second = 0; second < 100; ++second) {
    Keep(10);
    if (second == 0) {
      const Published first = Publish(*outbox_.Next());
      EXPECT_EQ(first.payload["schema"], 1);
      EXPECT_EQ(first.payload["gateway"], "gw \"7\"");
      EXPECT_EQ(first.payload["stream"], outbox_.stream());
      EXPECT_EQ(first.payload["number"], 1);
      EXPECT_EQ(first.topic, "event/lan/" + std::string(100, 'x'));
      EXPECT_TRUE(std::regex_match(first.payload["time"].get<std::string>(),
                                   std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)")));
    }
    Pass(std::chrono::seconds(1));
    Drain(outbox_.figures().records - 1);  // never empty, but none is old
  }
  EXPECT_EQ(outbox_.figures().writtenToday, before);
  Drain();
  EXPECT_FALSE(outbox_.Due()) << "an idle bridge must not be woken";
  Keep();
  ASSERT_TRUE(outbox_.Due());
  EXPECT_EQ(*outbox_.Due(), now_ + kGroupTime);
  Pass(kGroupTime);
  EXPECT_GT(outbox_.figures().writtenToday, before);
}

// With a line that is slow, breaks, and acknowledges in any order, and with clean stops.
TEST_F(OutboxTest, EveryRecordIsPublishedInOrderUntilItIsAcknowledged) {
  std::mt19937 random(1);
  std::deque<std::uint64_t> inFlight;
  std::uint64_t published = 0;  // up to this number
  const std::string stream = outbox_.stream();
  const auto publish = [&] {
    const Outbox::Record *next = inFlight.size() < 16 ? outbox_.Next() : nullptr;
    if (next == nullptr) return false;
    const Published record = Publish(*next);
    EXPECT_EQ(record.stream, stream);
    EXPECT_LE(record.number, published + 1) << "one was left out";
    EXPECT_EQ(record.id(), static_cast<int>(record.number) - 1);
    published = std::max(published, record.number);
    inFlight.push_back(record.number);
    outbox_.HandedOut();
    return true;
  };
  const auto acknowledge = [&] {
    if (inFlight.empty()) return;
    const auto some =
        inFlight.begin() + static_cast<std::ptrdiff_t>(random() % std::min<std::size_t>(3, inFlight.size()));
    outbox_.Acknowledged(*some);
    inFlight.erase(some);
  };
  for (int turn = 0; turn < 60'000 && !HasFailure(); ++turn) {
    const auto what = random() % 10'000;
    if (what < 3500) {
      Keep(1, random() % 500);
    } else if (what < 6500) {
      publish();
    } else if (what < 9980) {
      acknowledge();
    } else {
      inFlight.clear();
      if (what < 9990)
        outbox_.Rewind();
      else if (what < 9995)
        Pass(kGroupTime);
      else
        Reopen();
    }
    EXPECT_EQ(outbox_.stream(), stream);
  }
  Reopen();
  inFlight.clear();
  Keep(30'000, 200);
  EXPECT_LT(outbox_.figures().writtenToday, 40u << 20);
  while (publish() || !inFlight.empty()) acknowledge();
  EXPECT_EQ(published, static_cast<std::uint64_t>(kept_));
  EXPECT_EQ(outbox_.figures().records, 0u);
  EXPECT_EQ(outbox_.figures().bytes, 0u);
  EXPECT_FALSE(outbox_.figures().oldest);
  Pass(kGroupTime);
  outbox_.Close();
  EXPECT_LT(fs::file_size(options_.path), 1u << 20) << "the file has shrunk";
}

// Those that are removed meanwhile must not make newer ones in the file count as unwritten, or as absent.
TEST_F(OutboxTest, GroupsAreWrittenWhileTheFileIsReadBack) {
  constexpr int kCount = 60'000;
  Keep(kCount, 200);
  Pass(kGroupTime);
  for (int first = 0; first < kCount && !HasFailure(); first += 1000) {
    ExpectIds(Drain(1000), first, first + 1000);
    Pass(std::chrono::minutes(2));
  }
  EXPECT_EQ(outbox_.figures().records, 0u);
  EXPECT_EQ(outbox_.figures().bytes, 0u);
  EXPECT_EQ(outbox_.figures().givenUp, 0u);
}

// A copy of the files at any instant is what a power cut leaves; what the last transaction has appended may be torn.
TEST_F(OutboxTest, APowerCutCostsNothingThatWasWrittenAndRepeatsNoIdentity) {
  std::mt19937 random(2);
  TempRoot other;
  options_.groupBytes = 8u << 10;
  options_.queueBytes = 256u << 10;
  Reopen();
  std::map<std::string, int> identities;  // which record the broker has under which one
  int safeEnd = 0;                        // records before it have been written or acknowledged
  const auto drain = [&](Outbox &outbox, std::size_t most) {
    std::vector<Published> drained = Drain(outbox, most);
    for (const Published &each : drained) {
      EXPECT_EQ(identities.try_emplace(each.identity(), each.id()).first->second, each.id()) << each.identity();
    }
    return drained;
  };
  int acknowledged = 0;
  for (int cut = 0; cut < 60 && !HasFailure(); ++cut) {
    std::uintmax_t log = 0;
    for (auto turn = random() % 40; turn > 0; --turn) {
      Keep(static_cast<int>(random() % 20), random() % 300);
      acknowledged += static_cast<int>(drain(outbox_, random() % 20).size());
      log = fs::file_size(options_.path + "-wal");
      if (random() % 4 != 0) continue;
      now_ += kGroupTime;
      outbox_.Write();
      safeEnd = kept_;
    }
    Outbox::Options copy = options_;
    copy.path = other.Path("/" + std::to_string(cut));
    fs::copy_file(options_.path, copy.path);
    fs::copy_file(options_.path + "-wal", copy.path + "-wal");
    const auto now = fs::file_size(copy.path + "-wal");
    const bool torn = now > log && random() % 2 == 0;
    if (torn) fs::resize_file(copy.path + "-wal", log + random() % (now - log));
    Outbox after;
    ASSERT_EQ(after.Open(copy, problems_), daemon::kExitOk);
    after.Keep("event/lan/up", "event/lan", "\"id\":1000000");
    const std::vector<Published> left = drain(after, SIZE_MAX);
    ASSERT_FALSE(left.empty());
    EXPECT_EQ(left.back().number, 1u);
    EXPECT_GT(left.back().stream, outbox_.stream());
    EXPECT_EQ(left.back().stream.substr(0, 12), outbox_.stream().substr(0, 12));
    // Some may come twice, none out of order; nothing that was written is missing.
    int next = left.size() == 1 ? acknowledged : left.front().id();
    EXPECT_LE(next, acknowledged);
    for (std::size_t i = 0; i + 1 < left.size(); ++i) EXPECT_EQ(left[i].id(), next++);
    EXPECT_GE(next, torn ? 0 : safeEnd);
    identities.erase(left.back().identity());
  }
}

TEST_F(OutboxTest, AFullQueueKeepsTheOldestAndTellsOfTheRestInOneRecord) {
  options_.queueBytes = 100'000;
  Reopen();
  Keep(1000, 1000);
  const auto full = outbox_.figures();
  EXPECT_LE(full.bytes, options_.queueBytes);
  EXPECT_EQ(full.records + full.givenUp, 1000u);
  for (int i = 0; i < 40; ++i) Keep(1, 1000, "event/m" + std::to_string(i));
  EXPECT_EQ(Drain(2).size(), 2u);
  Keep(1, 100);  // would fit, but room is to be had for more than one
  Pass(std::chrono::minutes(1));
  const int kept = static_cast<int>(full.records);
  const Published before = Drain(full.records - 2).back();
  EXPECT_EQ(before.id(), kept - 1);
  Keep();
  const std::vector<Published> rest = Drain();
  ASSERT_EQ(rest.size(), 2u);
  EXPECT_EQ(rest[0].topic, "gap");
  EXPECT_EQ(rest[0].number, before.number + 1);
  EXPECT_EQ(rest[0].payload["lost"], 1041 - kept);
  EXPECT_EQ(rest[0].payload["by"].size(), 33u);
  EXPECT_EQ(rest[0].payload["by"]["event/lan"], 1001 - kept);
  EXPECT_EQ(rest[0].payload["by"]["other"], 9);
  EXPECT_LE(rest[0].payload["from"], rest[0].payload["to"]);
  EXPECT_EQ(rest[1].number, before.number + 2);
  EXPECT_EQ(outbox_.figures().givenUp, static_cast<std::uint64_t>(1041 - kept));
}

TEST_F(OutboxTest, AGapThatIsOpenSurvivesStopsAndPowerCuts) {
  for (const bool isClean : {true, false}) {
    Outbox::Options options = options_;
    options.queueBytes = 20'000;
    options.path = root_.Path(isClean ? "/clean" : "/cut");
    Outbox before;
    ASSERT_EQ(before.Open(options, problems_), daemon::kExitOk);
    for (int i = 0; i < 30; ++i) before.Keep("log", "log", '"' + std::string(1000, 'a') + "\":0");
    now_ += std::chrono::minutes(1);
    before.Write();
    if (isClean) before.Close();
    for (const char *part : {"", "-wal"}) {
      if (fs::exists(options.path + part)) fs::copy_file(options.path + part, options.path + ".copy" + part);
    }
    options.path += ".copy";
    Outbox after;
    ASSERT_EQ(after.Open(options, problems_), daemon::kExitOk);
    const std::vector<Published> left = Drain(after);
    ASSERT_FALSE(left.empty());
    EXPECT_EQ(left.back().topic, "gap");
    EXPECT_EQ(left.back().payload["lost"], 31 - left.size());
    EXPECT_EQ(left.back().number, left.size());
  }
}

TEST_F(OutboxTest, TheDaysWritesAreBoundedAcrossRestartsAndClockJumps) {
  options_.dailyBytes = 2u << 20;
  options_.path = root_.Path("/bounded");
  Reopen();
  Keep(8000, 400);
  const auto used = outbox_.figures();
  EXPECT_TRUE(used.writesUsedUp);
  EXPECT_LT(used.writtenToday, options_.dailyBytes + (200u << 10)) << "but for the last group";
  EXPECT_GT(used.givenUp, 0u);
  ASSERT_TRUE(outbox_.Due());
  EXPECT_EQ(*outbox_.Due(), now_ + std::chrono::hours(24));
  Pass(std::chrono::hours(10));
  EXPECT_EQ(outbox_.figures().writtenToday, used.writtenToday);
  Reopen();  // a stop writes what there is
  EXPECT_GE(outbox_.figures().writtenToday, used.writtenToday);
  Keep(100, 400);
  Pass(std::chrono::hours(13));
  EXPECT_TRUE(outbox_.figures().writesUsedUp);
  Pass(std::chrono::hours(1));
  EXPECT_FALSE(outbox_.figures().writesUsedUp);
  EXPECT_LT(outbox_.figures().writtenToday, options_.dailyBytes);
  const std::vector<Published> all = Drain();
  EXPECT_EQ(all.size() - 1, static_cast<std::size_t>(kept_) - used.givenUp) << "and one gap";
}

TEST_F(OutboxTest, ShortLivesDoNotUseUpTheDayWithWhatTheyNeverWrote) {
  bridge::DailyWrites::Saved saved;
  for (int life = 0; life < 100; ++life) {
    bridge::DailyWrites daily;
    daily.Start(256u << 20, now_);
    daily.Resume(saved, now_);
    EXPECT_FALSE(daily.UsedUp(now_)) << life;
    saved = daily.ToSave(now_, false);
  }
}

struct Fault {
  FileCall call;
  int result;
  const char *text;
};

// Each call of each kind fails once, then all of them for a while.
TEST_F(OutboxTest, FailuresOfTheDiskCostNothingAndAreNamedOnce) {
  for (const Fault &fault : {Fault{FileCall::kWrite, SQLITE_FULL, "database or disk is full"},
                             Fault{FileCall::kWrite, SQLITE_IOERR_WRITE, "disk I/O error"},
                             Fault{FileCall::kSync, SQLITE_IOERR_FSYNC, "disk I/O error"},
                             Fault{FileCall::kRead, SQLITE_IOERR_READ, "disk I/O error"},
                             Fault{FileCall::kOpen, SQLITE_CANTOPEN, "unable to open database file"}}) {
    long passing = 0;
    for (bool reached = true; reached && !HasFailure(); passing += 1 + passing / 2) {
      SCOPED_TRACE(std::to_string(static_cast<int>(fault.call)) + " after " + std::to_string(passing));
      options_.path = root_.Path("/" + std::to_string(static_cast<int>(fault.call)) + std::to_string(fault.result) +
                                 "." + std::to_string(passing));
      outbox_.Close();
      const int first = kept_;
      Capture lines(2);
      std::vector<Published> published;
      {
        FailingFiles failing(fault.call, fault.result, passing, passing % 2 == 0 ? 1 : 3);
        daemon::ProblemLog problems("zorbridge");  // whose burst is not used up
        Outbox outbox;
        ASSERT_EQ(outbox.Open(options_, problems), daemon::kExitOk);
        for (int turn = 0; turn < 12; ++turn) {
          Keep(outbox, 150, 1500);
          for (Published &each : Drain(outbox, 30)) published.push_back(std::move(each));
          if (turn == 6) outbox.Rewind();
          now_ += std::chrono::minutes(6);
          if (outbox.Due()) outbox.Write();
        }
        reached = failing.Failed() > 0;
        EXPECT_THAT(lines.Text(), failing.Failed() > 1 ? HasSubstr(fault.text) : HasSubstr(""));
        EXPECT_LT(std::ranges::count(lines.Text(), '\n'), 8);
        for (Published &each : Drain(outbox)) published.push_back(std::move(each));
        for (int tries = 0; tries < 100 && outbox.figures().records > 0; ++tries) {
          now_ += std::chrono::minutes(6);
          outbox.Write();
          for (Published &each : Drain(outbox)) published.push_back(std::move(each));
        }
        EXPECT_EQ(outbox.figures().givenUp, 0u);
      }
      ExpectIds(published, first, kept_);
      if (HasFailure()) std::fprintf(stderr, "%s", lines.Text().c_str());
    }
    EXPECT_GT(passing, 5) << "no such call is made";
  }
}

// Where the damage is noticed, and how many of the 3000 records are in the file only by then.
TEST_F(OutboxTest, ADamagedFileIsSetAsideAndWhatIsInMemoryGoesIntoANewOne) {
  Capture lines(2);
  options_.groupBytes = 100'000;
  Reopen();
  const std::string stream = outbox_.stream();
  Keep(3000, 1000);
  {
    FailingFiles failing(FileCall::kRead, SQLITE_CORRUPT, 0, 1);
    const std::vector<Published> left = Drain();
    const auto gap = std::ranges::find(left, "gap", &Published::topic);
    ASSERT_NE(gap, left.end());
    const auto lost = gap->payload["lost"].get<std::uint64_t>();
    EXPECT_EQ(left.size() - 1 + lost, 3000u);
    EXPECT_EQ(outbox_.figures().givenUp, lost);
    EXPECT_EQ((gap - 1)->number + 1, gap->number);
    EXPECT_EQ(left.back().number, 3000u);
    EXPECT_GT(lost, 1000u);
  }
  EXPECT_TRUE(fs::exists(options_.path + ".damaged"));
  EXPECT_THAT(lines.Text(), HasSubstr("set aside as"));
  Keep(10);
  Reopen();
  EXPECT_EQ(outbox_.stream(), stream);
  ExpectIds(Drain(), 3000, 3010);

  outbox_.Close();
  std::ofstream(options_.path) << std::string(10'000, 'z');
  Open();
  EXPECT_NE(outbox_.stream().substr(0, 12), stream.substr(0, 12));
  Keep();
  EXPECT_EQ(Drain().front().number, 1u);
}

TEST_F(OutboxTest, AFileThatIsLockedForAWhileGoesBeforeWhatWasKeptMeanwhile) {
  Keep(5);
  outbox_.Close();
  sqlite3 *shell = nullptr;
  ASSERT_EQ(sqlite3_open(options_.path.c_str(), &shell), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(shell, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  Capture lines(2);
  Open();
  EXPECT_THAT(lines.Text(), HasSubstr("database is locked"));
  EXPECT_FALSE(outbox_.figures().problem.empty());
  Keep(5);
  ASSERT_NE(outbox_.Next(), nullptr);
  EXPECT_EQ(Publish(*outbox_.Next()).id(), 5);
  outbox_.HandedOut();
  sqlite3_close(shell);
  Pass(std::chrono::minutes(6));
  EXPECT_TRUE(outbox_.figures().problem.empty());
  EXPECT_EQ(outbox_.Next(), nullptr) << "a number in flight may be that of an older record";
  outbox_.Acknowledged(1);
  const std::vector<Published> all = Drain();
  ExpectIds(all, 0, 10);
  EXPECT_NE(all.front().stream, all.back().stream);
}

TEST_F(OutboxTest, ASecondBridgeIsRefused) {
  Capture lines(2);
  Outbox second;
  EXPECT_EQ(second.Open(options_, problems_), daemon::kExitBusy);
  EXPECT_THAT(lines.Text(), HasSubstr("another zorbridge is running"));
  Outbox elsewhere;
  options_.path = root_.Path("/absent/queue.db");
  EXPECT_EQ(elsewhere.Open(options_, problems_), daemon::kExitFailure);
}

TEST_F(OutboxTest, ARecordWithoutMemoryIsGivenUpAndTold) {
  bool failed = true;
  int given = 0;
  for (unsigned passing = 0; failed; ++passing) {
    FailingAllocations failing(passing, 1);
    outbox_.Keep("log", "log", "\"text\":\"longer than a string holds without a block of its own\"");
    failed = failing.Failed();
    ++given;
  }
#ifndef __SANITIZE_ADDRESS__  // whose operator new does not call malloc
  EXPECT_GT(outbox_.figures().givenUp, 0u);
#endif
  int told = 0;
  const std::vector<Published> published = Drain();
  for (std::size_t i = 0; i < published.size(); ++i) {
    EXPECT_EQ(published[i].number, i + 1);
    told += published[i].payload.value("lost", 1);
  }
  EXPECT_EQ(told, given);
}

}  // namespace
}  // namespace zor::test
