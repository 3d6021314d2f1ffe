// The bridge's queue: order and identity across stops and power cuts, and its bounds.
#include "outbox_fixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>

#include "support/capture.h"
#include "zorbridge/daily_writes.h"

namespace zor::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

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
    Drain(static_cast<size_t>(outbox_.figures().records - 1));  // never empty, but none is old
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
  const Published before = Drain(static_cast<size_t>(full.records - 2)).back();
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

}  // namespace
}  // namespace zor::test
