// The pattern matcher by itself.
#include "msgsvr/restful.h"

#include <gtest/gtest.h>

namespace zor::msgsvr {
namespace {

TEST(RestfulPattern, MatchesLikeTheLibrary) {
  const struct {
    const char *list, *path;
    bool matches;
  } cases[] = {
      {"/api/*|/dev/**", "/dev/a/b", true},
      {"/api/*", "/api/a/b", false},
      {"/a?c", "/abc", true},
      {"/a?c", "/a/c", true},
      {"/a?", "/a", false},
      {"", "", true},
      {"", "/", false},
      {"/a|", "", true},
      {"*", "", true},
      {"**", "/a/b", true},
      {"***", "/a/b", true},
      {"/*/c", "/ab/c", true},
      {"/*/c", "/a/b/c", false},
      {"/**/c", "/a/b/c", true},
      {"/a*", "/a", true},
      {"*a*b", "aab", true},
      {"/a", "/ab", false},
      {"/ab", "/a", false},
  };
  for (const auto &[list, path, matches] : cases)
    EXPECT_EQ(MatchPatternList(list, path), matches) << list << ' ' << path;
}

TEST(RestfulPattern, TakesBoundedTimeForPatternsThatBacktrack) {
  std::string pattern;
  for (int i = 0; i < 500; ++i) pattern += "*a";
  EXPECT_FALSE(MatchPatternList(pattern + "b", std::string(128, 'a')));
}

}  // namespace
}  // namespace zor::msgsvr
