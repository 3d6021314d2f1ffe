// What a server asks, what it remembers of the replies, and the rules that are learned from them.
#include "programs/access/guard.h"

#include "access/access_fixture.h"
#include "programs/access/learn.h"
#include "programs/limits.h"

namespace zor::test {
namespace {

using access::Action;
using access::Guard;
using access::Reason;
using access::Verb;
using testing::HasSubstr;

class GuardTest : public Access {};

TEST_F(GuardTest, DecidesAsTheRulesDoHoweverOftenItIsAsked) {
  std::string text;
  for (int i = 0; i < 50; ++i) {
    text += (i % 3 == 0 ? "deny" : "allow") + std::string(" = user:") + (i % 2 == 0 ? "web" : "guest") + " send " +
            std::to_string(7 * i % 40) + '-' + std::to_string(7 * i % 40 + 3) + " to n" + std::to_string(i % 10) +
            "*\n";
  }
  Guard guard(Parse(text));
  const access::Identity identities[] = {User("web"), User("guest"), User("boss"), {}};
  for (int round = 0; round < 2; ++round) {
    for (const access::Identity &identity : identities) {
      const Guard::Subject subject = guard.Admit(identity);
      for (std::uint32_t i = 0; i < limits::access::kDecisions; ++i) {
        const std::string name = "n" + std::to_string(i / 40 % 100);
        const Action action = {Verb::kSend, i % 40, name};
        ASSERT_EQ(guard.Ask(subject, action).verdict.rule, guard.rules().Decide(identity, action).rule);
      }
      guard.Dismiss(subject);
    }
  }
}

TEST_F(GuardTest, EqualPeersAreOneSubjectAndAnEndedOneIsForgotten) {
  Guard guard(Parse("allow = user:web own web\nallow = user:web unit:a.service own a"));
  const Guard::Subject first = guard.Admit(User("web")), second = guard.Admit(User("web"));
  EXPECT_EQ(first, second);
  EXPECT_NE(guard.Admit(UserInUnit("web", "")), first) << "in no unit, which is not the same as unknown";
  guard.Dismiss(first);
  EXPECT_TRUE(guard.Ask(second, {Verb::kOwn, 0, "web"}).passes);
  guard.Dismiss(second);
  EXPECT_NE(guard.Admit(User("web")), first);
  EXPECT_FALSE(guard.Ask(12345, {Verb::kOwn, 0, "web"}).passes) << "not admitted";
}

TEST_F(GuardTest, NewRulesAreInForceAtOnce) {
  Guard guard;
  const Guard::Subject web = guard.Admit(User("web"));
  const Action own = {Verb::kOwn, 0, "web"};
  EXPECT_EQ(guard.Ask(web, own).verdict.reason, Reason::kOpen);
  guard.Replace(Parse("deny = user:web own web\nallow = any all"));
  EXPECT_FALSE(guard.Ask(web, own).passes);
  guard.Replace(Parse("allow = user:web own web\ndeny = any all"));
  EXPECT_TRUE(guard.Ask(web, own).passes);
  const access::Identity guest = User("guest");
  EXPECT_EQ(guard.Ask(web, {Verb::kOwn, 0, "web", &guest}).verdict.reason, Reason::kHeld) << "not from what is kept";
  EXPECT_TRUE(guard.Ask(web, own).passes);
}

TEST_F(GuardTest, WhatIsObservedPassesAndCanBeLearned) {
  struct Seen {
    access::Identity who;
    Verb verb;
    std::uint32_t number;
    std::string name;
  };
  const Seen kSeen[] = {
      {UserInUnit("web", "web.service"), Verb::kOwn, 0, "web"},
      {UserInUnit("web", "web.service"), Verb::kSend, 0x5009, "cms"},
      {UserInUnit("web", "web.service"), Verb::kSend, 0x61001, "cms"},
      {UserInUnit("web", "web.service"), Verb::kSend, 0x5009, "a,b *\\"},
      {UserInUnit("web", "web.service"), Verb::kSubscribe, 0x2DA00, ""},
      {UserInUnit("web", "web.service"), Verb::kSubscribe, 0x2DA01, "cms"},
      {UserInUnit("web", "web.service"), Verb::kServe, 0, "/api/*"},
      {User("guest"), Verb::kOwn, 0, "ctl4711"},
      {User("guest"), Verb::kOwn, 0, "job1"},
      {User("guest"), Verb::kOwn, 0, "job2"},
      {User("guest"), Verb::kModule, 26, ""},
      {User("guest"), Verb::kControl, 0xFFFF0000, ""},
      {Board(0x0A000001), Verb::kPublish, 0x2DA01, ""},
      {Board(0x0A000001), Verb::kPost, 0, "ready"},
  };
  Guard guard(Parse("mode = observe"));
  for (const Seen &each : kSeen) {
    const Guard::Subject subject = guard.Admit(each.who);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(guard.Ask(subject, {each.verb, each.number, each.name}).passes);
  }
  EXPECT_EQ(guard.refusals().total(), 3 * std::size(kSeen));
  EXPECT_THAT(guard.refusals().Text(),
              HasSubstr("# no rule is about it\nseen = 3 user:106 group:106,110 unit:web.service own web\n"));

  const auto learned = access::Learn(guard.refusals().Text(), "seen", accounts_, mistakes_);
  ASSERT_TRUE(learned) << testing::PrintToString(mistakes_);
  const access::Rules rules = Parse(*learned);
  for (const Seen &each : kSeen) {
    const access::Verdict verdict = rules.Decide(each.who, {each.verb, each.number, each.name});
    EXPECT_TRUE(verdict.allowed) << access::WordsOf(each.verb).word << ' ' << each.name << '\n' << *learned;
  }
  EXPECT_FALSE(rules.Decide(User("guest"), {Verb::kOwn, 0, "web"}).allowed);
  EXPECT_FALSE(rules.Decide(UserInUnit("web", "web.service"), {Verb::kModule, 26, ""}).allowed);
  EXPECT_TRUE(rules.Decide(User("guest"), {Verb::kOwn, 0, "ctl12"}).allowed) << "the next run of the same tool";
}

TEST_F(GuardTest, RefusalsAreKeptUpToALimitAndHostileNamesInTheirLine) {
  Guard guard(Parse("mode = observe"));
  const Guard::Subject web = guard.Admit(User("web"));
  const std::size_t count = limits::access::kRefusals + 10;
  guard.Ask(web, {Verb::kServe, 0, "/x\nallow = any all"});
  for (std::uint32_t i = 1; i < count; ++i) guard.Ask(web, {Verb::kSend, i, "x"});
  EXPECT_EQ(guard.refusals().total(), count);
  EXPECT_EQ(guard.refusals().unlisted(), 10u);
  EXPECT_THAT(guard.refusals().Text(), HasSubstr("serve /x\\x0aallow\\x20=\\x20any\\x20all\n"));
}

}  // namespace
}  // namespace zor::test
