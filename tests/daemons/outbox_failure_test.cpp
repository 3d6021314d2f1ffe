// The bridge's queue: disks that fail, damaged and locked files, and no memory.
#include "outbox_fixture.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "support/capture.h"
#include "support/failing_alloc.h"

namespace zor::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

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
#ifndef ZOR_SANITIZED  // whose operator new does not call malloc
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
