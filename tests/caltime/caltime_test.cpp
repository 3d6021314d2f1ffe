#include <gtest/gtest.h>
#include <zor/caltime.h>

#include <cstring>

#include "support/capture.h"

namespace {

TEST(TimeText, IsCheckedForItsFormOnly) {
  const struct {
    const char *text;
    uint32_t status;
  } forms[] = {
      {"", 0},
      {"2020-01-31T08:05:00Z", 0},
      {"20200131T08:05:00", 0},
      {"2020-01-31T08:05:00.123+08:00", 0},
      {"9999-99-99T99:99:99Z", 0},
      {"2020-01-31T08:05:00Zgarbage", 0},
      {"2020-01-31T08:05:5", 0},
      {"2020-01-31T08:05:00.1-02+03:00", 0},
      {"2020-01-31T08:05:00x08:00", 0},
      {"20200131T08:05:0", 1},                               // 16 characters
      {"2020-01-31T08:05:00.1234567890123456789+08:00", 1},  // more than 40
      {"2020-01-31T08:05:5Z", 1},
      {"2020-01-31T08:05:00+0800", 1},
      {"2020-01-31T08:05:00.123", 1},
      {"2020-01-31T08:05:00:", 1},
      {"2020-01-31T08:05:00z", 1},
      {"2020--01-31T08:05:00Z", 1},
      {"202001311T08:05:00Z", 1},
      {"2020-01-31 08:05:00Z", 1},
      {"2020-01-3aT08:05:00Z", 1},
      {"2020-01-31-08-05-00T", 1},
  };
  for (const auto &form : forms) {
    ZOR_CAL_TIME time = {};
    EXPECT_EQ(ZOR_UTIL_UCTTimeFormatCheck(form.text, &time), form.status) << form.text;
  }
  ZOR_CAL_TIME time = {7, 7, 7, 7, 7, 7};
  EXPECT_EQ(ZOR_UTIL_UCTTimeFormatCheck(nullptr, &time), 1u);
  EXPECT_EQ(ZOR_UTIL_UCTTimeFormatCheck("", &time), 0u);
  EXPECT_EQ(time.year, 7u) << "an empty text stores nothing";
  EXPECT_EQ(ZOR_UTIL_UCTTimeFormatCheck("20210203T04:05:06", &time), 0u);
  const ZOR_CAL_TIME expected = {2021, 2, 3, 4, 5, 6};
  EXPECT_EQ(std::memcmp(&time, &expected, sizeof time), 0);
}

TEST(TimeRange, IsCheckedInOrderWithItsOwnLines) {
  const struct {
    uint32_t fields[6];
    uint32_t status;
    const char *printed;
  } ranges[] = {
      {{2020, 2, 30, 0, 0, 0}, 0, ""},
      {{2021, 2, 29, 0, 0, 0}, 1, "The day[2021-2-29] of periodictime isn't exit.\n"},
      {{1900, 2, 29, 99, 0, 0}, 1, "The day[1900-2-29] of periodictime isn't exit.\n"},
      {{2020, 0, 31, 0, 0, 0}, 1, "The day[2020-0-31] of periodictime isn't exit.\n"},
      {{2020, 13, 1, 99, 0, 0}, 1, ""},
      {{2020, 1, 31, 24, 60, 60}, 1, "\nThe hour of periodictime is not in the range."},
      {{2020, 1, 31, 23, 60, 60}, 1, "\nThe minute of periodictime is not in the range."},
      {{0, 0, 0, 0, 0, 60}, 1, "\nThe second of periodictime is not in the range."},
      {{0, 0, 0, 0, 0, 0}, 1, "\nDosen't need to change the interval of inform."},
      {{0, 0, 0, 0, 0, 59}, 0, ""},
  };
  for (const auto &range : ranges) {
    const uint32_t *f = range.fields;
    zor::test::Capture out;
    EXPECT_EQ(ZOR_UTIL_CheckTimeValid(f[0], f[1], f[2], f[3], f[4], f[5]), range.status) << &range - ranges;
    EXPECT_EQ(out.Text(), range.printed) << &range - ranges;
  }
}

TEST(TimeDifference, IsTheLaterMinusTheEarlier) {
  constexpr uint32_t kUntouched = 77;
  const struct {
    const char *first;
    const char *second;
    uint32_t status;
    uint32_t difference;
    uint32_t firstIsLater;
  } cases[] = {
      {"2020-01-01T00:00:00Z", "2020-01-02T00:00:01Z", 0, 86401, 0},
      {"2020-01-02T00:00:01Z", "2020-01-01T00:00:00Z", 0, 86401, 1},
      {"2020-02-28T00:00:00Z", "2020-03-01T00:00:00Z", 0, 2 * 86400, 0},
      {"1900-02-28T00:00:00Z", "1900-03-01T00:00:00Z", 0, 86400, 0},
      {"0000-12-31T00:00:00Z", "0001-01-01T00:00:00Z", 0, 86400, 0},
      {"2020-02-01T00:00:00Z", "2020-13-01T00:00:00Z", 0, 4292288896u, 0},
      {"1970-01-01T00:00:00Z", "2020-01-01T00:00:00Z", 0, 1577836800, 0},
      {"1970-01-01T00:00:00Z", "2021-01-01T00:00:00Z", 0, kUntouched, 0},
      {"2021-01-01T00:00:00Z", "1970-01-01T00:00:00Z", 0, kUntouched, 0},
      {"", "2020-01-01T00:00:00Z", 1, kUntouched, 9},
      {"2020-01-01T00:00:00Z", "", 0, kUntouched, 0},
      {"2021-02-29T00:00:00Z", "nonsense", 1, kUntouched, 9},
  };
  for (const auto &c : cases) {
    uint32_t difference = kUntouched;
    uint32_t flag = 9;
    EXPECT_EQ(ZOR_UTIL_GetDifTime(c.first, c.second, &difference, &flag), c.status) << c.first << ' ' << c.second;
    EXPECT_EQ(difference, c.difference) << c.first << ' ' << c.second;
    EXPECT_EQ(flag, c.firstIsLater) << c.first << ' ' << c.second;
  }
}

TEST(DelayTime, IsTheRestOrWhatIsMissing) {
  uint32_t delay = 0;
  EXPECT_EQ(ZOR_UTIL_GetDelayTime(100, 30, 1, &delay), 3u);
  EXPECT_EQ(delay, 10u);
  EXPECT_EQ(ZOR_UTIL_GetDelayTime(100, 30, 0, &delay), 3u);
  EXPECT_EQ(delay, 20u);
  for (const uint32_t flag : {0u, 1u}) {
    EXPECT_EQ(ZOR_UTIL_GetDelayTime(90, 30, flag, &delay), 3u);
    EXPECT_EQ(delay, 30u);
  }
  EXPECT_EQ(ZOR_UTIL_GetDelayTime(90, 0, 0, nullptr), 90u);
}

}  // namespace
