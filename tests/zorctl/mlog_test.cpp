// The developers' log: its circular file, its lines and their times.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/mlog_wire.h>

#include <array>
#include <cstdio>

#include "zorctl/mlog_file.h"
#include "zorctl/mlog_line.h"

namespace zor::test {
namespace {

using namespace ctl;
using testing::ElementsAre;

// A file whose writing ends behind the first text; the second is what the round before has left.
std::string File(int overturn, const std::string &newest, const std::string &remnant = "") {
  std::array<char, 128> header = {};
  std::snprintf(header.data(), header.size(), "[%8s=%03d][%6s=%010zu][%12s=%03d^%010d]\n", "overturn", overturn,
                "offset", ZOR_MLOG_FILE_HEADER_SIZE + newest.size(), "uploadoffset", overturn, 0);
  return std::string(header.data()).substr(0, ZOR_MLOG_FILE_HEADER_SIZE) + newest + remnant;
}

MlogImage Image(int overturn, const std::string &newest, const std::string &remnant = "") {
  const auto image = MlogImage::Of(File(overturn, newest, remnant));
  EXPECT_TRUE(image);
  return image.value_or(MlogImage());
}

TEST(MlogFile, IsReadFromItsOldestWholeLineToItsNewest) {
  EXPECT_THAT(Image(0, "").Lines(), ElementsAre());
  EXPECT_THAT(Image(0, "", std::string(1, '\0')).Lines(), ElementsAre());
  EXPECT_THAT(Image(0, std::string(1, '\0') + "a\nb\n").Lines(), ElementsAre("a", "b"));
  EXPECT_THAT(Image(1, "new\n", "rn line\nold\n").Lines(), ElementsAre("old", "new"));
  EXPECT_THAT(Image(1000, "new\n", "rn\nold\n").Lines(), ElementsAre("old", "new"));  // the header is cut
  const std::string whole = File(0, "a\n");
  for (const std::string &bad : {std::string(), std::string("x"), whole.substr(0, 62), std::string(100, '['),
                                 File(0, "abc").substr(0, ZOR_MLOG_FILE_HEADER_SIZE + 1)}) {
    EXPECT_FALSE(MlogImage::Of(bad)) << bad;
  }
}

TEST(MlogFile, NewsAreWhatWasWrittenSince) {
  struct Case {
    MlogImage before, now;
    std::vector<std::string> lines;
    bool lost;
  };
  const Case cases[] = {
      {Image(0, "a\n"), Image(0, "a\n"), {}, false},
      {Image(0, "a\n"), Image(0, "a\nb\nc\n"), {"b", "c"}, false},
      {Image(1, "a\n", "old\nolder\n"), Image(1, "a\nnew\n", "older\n"), {"new"}, false},
      {Image(0, "a\nb\n"), Image(1, "c\n", "b\n"), {"c"}, false},
      {Image(0, "a\nb\n"), Image(1, "c\n", "b\nd\n"), {"d", "c"}, false},  // the file had grown
      {Image(1, "a\nbb\n", "old\nremnant\n"), Image(2, "cc\n", "b\nnew\nremnant\n"), {"new", "cc"}, false},
      {Image(1, "a\n"), Image(3, "b\n", "c\n"), {"b"}, true},
      {Image(5, "a\nb\n"), Image(0, "z\n"), {"z"}, true},  // made anew
  };
  for (const Case &each : cases) {
    const MlogImage::News news = each.now.Since(each.before);
    EXPECT_EQ(news.lines, each.lines);
    EXPECT_EQ(news.lost, each.lost);
  }
}

TEST(MlogLine, HasTheKernelsWordAndTheSenders) {
  const MlogLine line = ParseMlogLine("[pid=4127 uid=1000][00000012345][web][WARN]:a]b: c");
  EXPECT_EQ(line.pid + " " + line.uid + " " + line.tag + " " + line.level + " " + line.text,
            "4127 1000 web WARN a]b: c");
  EXPECT_EQ(line.bootMs, 12345);
  EXPECT_EQ(ParseMlogLine("[00000012345][web][WARN]:x").bootMs, 12345);
  for (const char *text :
       {"", "[", "plain", "[pid=1 uid=0]", "[x][web][WARN]:t", "[-1][web][WARN]:t", "[1][web]WARN:t"}) {
    EXPECT_FALSE(ParseMlogLine(text).bootMs) << text;
  }
  EXPECT_EQ(ParseMlogLine("[pid=1 uid=0]plain").text, "plain");
}

TEST(MlogLine, IsOfAnEarlierStartWhenTheClockBeganAnewBehindIt) {
  struct Case {
    std::vector<int64_t> times;  // -1: a line without
    size_t earlier;              // how many of the first
  };
  const Case cases[] = {
      {{}, 0},
      {{100'000, 200'000, 900'000}, 0},
      {{500'000, 600'000, 5'000, 6'000, 900'000}, 2},
      {{500'000, 0, 600'000, 610'000}, 0},  // one sender's lie
      {{500'000, 499'000, 600'000}, 0},     // not quite in order
      {{2'000'000, 900'000}, 1},            // of the future
      {{100'000, 2'000'000, 900'000}, 0},   // the same from a process that nothing older bears out
      {{-1, 700'000, -1, 5'000, 6'000}, 2},
  };
  for (const Case &each : cases) {
    std::vector<MlogLine> lines;
    for (const int64_t time : each.times) {
      lines.push_back({});
      if (time >= 0) lines.back().bootMs = time;
    }
    MarkEarlier(lines, 1'000'000);
    size_t earlier = 0;
    for (const MlogLine &line : lines) earlier += line.earlier ? 1 : 0;
    EXPECT_EQ(earlier, each.earlier) << testing::PrintToString(each.times);
  }
}

TEST(MlogTime, IsWhatUsersWrite) {
  constexpr int64_t kNow = 1'900'000'000'000;
  EXPECT_EQ(ParseSince("90s", kNow), kNow - 90'000);
  EXPECT_EQ(ParseSince("2h", kNow), kNow - 7'200'000);
  EXPECT_EQ(ParseSince("0d", kNow), kNow);
  const auto day = ParseSince("2026-11-22", kNow), time = ParseSince("2026-11-22 09:30:01", kNow);
  ASSERT_TRUE(day && time);
  EXPECT_EQ(MillisecondsText(*time), "2026-11-22 09:30:01.000");
  EXPECT_EQ(MillisecondsText(*day), "2026-11-22 00:00:00.000");
  for (const char *text : {"", "s", "10", "10x", "-5m", "99999999999999999999m", "2026-13-01", "09:30x", "noon"}) {
    EXPECT_FALSE(ParseSince(text, kNow)) << text;
  }
}

}  // namespace
}  // namespace zor::test
