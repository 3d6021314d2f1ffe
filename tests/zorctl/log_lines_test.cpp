#include "zorctl/log_lines.h"

#include <gtest/gtest.h>

#include "zorctl/text.h"

namespace zor::ctl {
namespace {

TEST(LogLines, WhatWasThereBeforeIsToldFromWhatIsNew) {
  const struct {
    const char *what;
    Lines before;
    Lines now;
    size_t seen;
  } cases[] = {
      {"nothing new", {"a", "b"}, {"a", "b"}, 2},
      {"one more", {"a", "b"}, {"a", "b", "c"}, 2},
      {"the oldest rotated out", {"a", "b", "c"}, {"b", "c", "d", "e"}, 2},
      {"equal lines in a row", {"a", "b", "b"}, {"b", "b", "b"}, 2},
      {"a shorter window than before", {"a", "b", "c", "d"}, {"d", "e"}, 1},
      {"some cleared in the middle", {"a", "b", "c"}, {"a", "c", "d"}, 2},
      {"everything cleared", {"a", "b"}, {}, 0},
      {"everything rotated out", {"a", "b"}, {"c", "d"}, 0},
      {"the first ones", {}, {"a"}, 0},
  };
  for (const auto &each : cases) EXPECT_EQ(CountSeen(each.before, each.now), each.seen) << each.what;
}

TEST(LogLines, LineIsTakenApartOnlyWhenItIsOne) {
  const auto line = ParseLogLine("2026-11-21 09:30:00 [User][Notice] User ] [x] logout");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->type + "|" + line->level + "|" + line->text, "User|Notice|User ] [x] logout");
  for (const char *other : {"", "2026-11-21 09:30:00", "2026-11-21 09:30:00 [User", "2026-11-21 09:30:00 [User] x"}) {
    EXPECT_FALSE(ParseLogLine(other)) << other;
  }
  EXPECT_EQ(SplitLines("a\n\nb"), (Lines{"a", "", "b"}));
}

TEST(Text, ProgramsReadItUnharmed) {
  EXPECT_EQ(EscapeLines("{\"a\":\"\\n\"}\n\t\x1b[m\xff"), "{\"a\":\"\\n\"}\n\t\\x1b[m\\xff");
  EXPECT_EQ(EscapeJson("[\"\u00fc\u009b\u202e\"]"), "[\"\u00fc\\u009b\\u202e\"]");
  EXPECT_EQ(messages::ToUtf8("\xc3\xbc\xc3"), "\u00fc\ufffd");
}

}  // namespace
}  // namespace zor::ctl
