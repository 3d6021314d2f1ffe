// The language of rules, and what rules decide.
#include "programs/access/rules.h"

#include <sys/stat.h>
#include <zor/msg_wire.h>

#include <fstream>
#include <iterator>

#include "access/access_fixture.h"
#include "programs/access/shadow.h"
#include "programs/limits.h"

namespace zor::test {
namespace {

using access::Identity;
using access::Reason;
using access::Rules;
using access::Verb;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RulesTest : public Access {};

TEST_F(RulesTest, EveryMistakeIsReportedWithItsLineAndRejectsAll) {
  const std::pair<const char *, const char *> kCases[] = {
      {"allow user:web own web", "not of the form key = value"},
      {"permit = any all", "no such key: \"permit\""},
      {"mode = perhaps", "mode must be enforce or observe"},
      {"shared_names = 1", "shared_names must be yes or no"},
      {"allow = own web", "begins with any"},
      {"allow = any user:web all", "any has no further conditions"},
      {"allow = user:web user:root all", "user: is there twice"},
      {"allow = user:nobody-here all", "no such user"},
      {"allow = user:4294967295 all", "no such user"},
      {"allow = group:, all", "no such group"},
      {"allow = user:web exe:web all", "not an absolute path"},
      {"allow = exe:/usr/sbin/web own web", "no condition by itself"},
      {"allow = user:web unit: all", "not the name of a unit"},
      {"allow = board:10.0.0.1/33 all", "an IPv4 address"},
      {"allow = board:modem/8 all", "not a board's name"},
      {"allow = board:10.0.0.1,5g-modem all", "not a board's name"},
      {"allow = any", "nothing that is done"},
      {"allow = any take web", "not something that is done: \"take\""},
      {"allow = any own", "takes a list of names"},
      {"allow = any own a, b", "not a name: \"\""},
      {"allow = any own a*b", "not a name"},
      {"allow = any own a\\x0", "not a name"},
      {"allow = any own twelve_chars", "at most 11 characters"},
      {"allow = any own a b", "one word too many"},
      {"allow = any send DB_SAVE", "takes types, \"to\" and names"},
      {"allow = any send DB_SAVE to", "no name behind \"to\""},
      {"allow = any send DB_SAVED to cms", "not a type"},
      {"allow = any send 2-1 to cms", "not a type"},
      {"allow = any send 0x100000 to cms", "out of range"},
      {"allow = any publish EVT_ALL", "out of range"},
      {"allow = any module 0", "out of range"},
      {"allow = any subscribe EVT_ALL cms", "takes types, \"for\" and names"},
  };
  for (const auto &[line, mistake] : kCases) {
    mistakes_.clear();
    const std::string text = std::string("# comment\n\n") + line + "\nallow = any all\n";
    EXPECT_FALSE(Rules::FromText(text, "f", accounts_, mistakes_)) << line;
    EXPECT_THAT(mistakes_, ElementsAre(testing::AllOf(testing::StartsWith("f:3: "), HasSubstr(mistake)))) << line;
  }
}

TEST_F(RulesTest, TooManyAndTooLongRulesAreRejected) {
  const std::string rule = "deny = any all\n";
  std::string many;
  for (std::size_t i = 0; i < limits::access::kRules; ++i) many += rule;
  EXPECT_EQ(Parse(many).list().size(), limits::access::kRules);
  EXPECT_FALSE(Rules::FromText(many + rule, "f", accounts_, mistakes_));
  EXPECT_FALSE(Rules::FromText('#' + std::string(limits::access::kLine, 'x'), "f", accounts_, mistakes_));
}

const char kManyRules[] =
    "allow = user:web unit:web.service,ui@* own web\n"
    "deny = any own web,db*\n"
    "allow = group:_zorbus own *\n"
    "deny = user:guest send 0x5000-0x5010 to cms\n"
    "allow = user:* send DB_SAVE,zor_msg_post_lua to *\n"
    "allow = board:10.1.0.0/16 send * to modem\n"
    "allow = user:web subscribe *\n"
    "allow = user:root subscribe 0x2DA05 for web\n"
    "deny = user:web serve /api/admin*\n"
    "allow = user:web serve /api/*\n"
    "allow = user:web own a\\x2cb\\x2a\n"
    "allow = user:web module 26,30-40\n"
    "deny = board:cam2 post *\n"
    "allow = board:cam*,10.2.0.1 post *\n"
    "deny = user:boss subscribe 0x2DA05\n"
    "allow = user:boss subscribe *\n";

TEST_F(RulesTest, TheFirstRuleThatConcernsBothDecides) {
  const Rules rules = Parse(kManyRules);
  const Identity web = User("web"), inUnit = UserInUnit("web", "web.service"), guest = User("guest");
  const Identity board = Board(0x0A01FFFF), otherBoard = Board(0x0A020001);
  const Identity camera = Board(7, "camera"), second = Board(7, "cam2"), modem = Board(7, "modem");
  const struct {
    const Identity &who;
    Verb verb;
    std::uint32_t number;
    const char *name;
    bool allowed;
    int line;  // 0: none
  } kCases[] = {
      {inUnit, Verb::kOwn, 0, "web", true, 1},
      {UserInUnit("web", "ui@1.service"), Verb::kOwn, 0, "web", true, 1},
      {UserInUnit("guest", "web.service"), Verb::kOwn, 0, "web", false, 2},
      {web, Verb::kOwn, 0, "web", false, 2},
      {web, Verb::kOwn, 0, "dbx", false, 2},
      {web, Verb::kOwn, 0, "webx", true, 3},
      {guest, Verb::kOwn, 0, "webx", false, 0},
      {guest, Verb::kSend, 0x5009, "cms", false, 4},
      {guest, Verb::kSend, 0x5009, "db", true, 5},
      {guest, Verb::kSend, 0x490C, "db", true, 5},
      {guest, Verb::kSend, 0x490D, "db", false, 0},
      {board, Verb::kSend, 0x5009, "cms", false, 0},
      {board, Verb::kSend, 0x5009, "modem", true, 6},
      {otherBoard, Verb::kSend, 0x5009, "modem", false, 0},
      {web, Verb::kSubscribe, 0x2DA00, "", true, 7},
      {web, Verb::kSubscribe, 0x2DA05, "web", false, 0},
      {User("root"), Verb::kSubscribe, 0x2DA05, "web", true, 8},
      {User("root"), Verb::kSubscribe, 0x2DA05, "", false, 0},
      {web, Verb::kServe, 0, "/api/status", true, 10},
      {web, Verb::kServe, 0, "/api/admin/x", false, 9},
      {web, Verb::kServe, 0, "/api/*", false, 9},  // matches what the prohibition is about
      {web, Verb::kServe, 0, "/api/a?min", false, 9},
      {web, Verb::kServe, 0, "/api/b*", true, 10},
      {web, Verb::kServe, 0, "/**", false, 9},
      {web, Verb::kServe, 0, "/api", false, 9},                  // gets what is below
      {User("boss"), Verb::kSubscribe, 0x2DA00, "", false, 15},  // includes it
      {User("boss"), Verb::kSubscribe, 0x2DA06, "", true, 16},
      {web, Verb::kOwn, 0, "a,b*", true, 3},
      {web, Verb::kModule, 26, "", true, 12},
      {web, Verb::kModule, 41, "", false, 0},
      {guest, Verb::kControl, 0xFF000, "", false, 0},
      {camera, Verb::kPost, 0, "x", true, 14},
      {second, Verb::kPost, 0, "x", false, 13},
      {modem, Verb::kPost, 0, "x", false, 0},
      {otherBoard, Verb::kPost, 0, "x", false, 13},  // it may be that board
  };
  for (const auto &each : kCases) {
    const access::Verdict verdict = rules.Decide(each.who, {each.verb, each.number, each.name});
    const std::string what = std::string(access::WordsOf(each.verb).word) + ' ' + each.name;
    EXPECT_EQ(verdict.allowed, each.allowed) << what << ' ' << each.number;
    EXPECT_EQ(verdict.rule == nullptr ? 0 : verdict.rule->place.line, each.line) << what << ' ' << each.number;
  }
  EXPECT_EQ(rules.Explain(rules.Decide(guest, {Verb::kSend, 0x5009, "cms"})),
            "rules:4: deny = user:guest send 0x5000-0x5010 to cms");
}

TEST_F(RulesTest, WhatIsNotKnownEarnsNothingAndEscapesNothing) {
  const char *kConditions[] = {"user:*", "user:guest", "group:web", "unit:web.service", "exe:/sbin/web user:guest"};
  Identity guest;
  guest.user = accounts_.User("guest");
  for (const char *condition : kConditions) {
    const Rules rules =
        Parse(std::string("deny = ") + condition + " own a\nallow = any own a\nallow = " + condition + " own b\n");
    EXPECT_FALSE(rules.Decide({}, {Verb::kOwn, 0, "a"}).allowed) << condition;
    EXPECT_FALSE(rules.Decide({}, {Verb::kOwn, 0, "b"}).allowed) << condition;
    EXPECT_TRUE(rules.Decide(Board(1), {Verb::kOwn, 0, "a"}).allowed) << "a board is no user here: " << condition;
  }
}

TEST_F(RulesTest, ANameThatAnotherUserHoldsIsNotGranted) {
  const Identity web = User("web"), guest = User("guest"), board = Board(1), otherBoard = Board(2), unknown;
  const Identity modem = Board(1, "modem"), moved = Board(2, "modem"), camera = Board(1, "camera");
  const Rules rules = Parse("allow = any own *");
  const auto reason = [&](const Rules &from, const Identity &who, const Identity &holder) {
    return from.Decide(who, {Verb::kOwn, 0, "x", &holder}).reason;
  };
  for (const auto &[who, holder] : {std::pair{&guest, &web},
                                    {&board, &web},
                                    {&web, &board},
                                    {&board, &otherBoard},
                                    {&unknown, &unknown},
                                    {&board, &modem},
                                    {&modem, &board},
                                    {&camera, &modem}}) {
    EXPECT_EQ(reason(rules, *who, *holder), Reason::kHeld);
  }
  EXPECT_EQ(reason(rules, web, UserInUnit("web", "x.service")), Reason::kRule);
  EXPECT_EQ(reason(rules, board, board), Reason::kRule);
  EXPECT_EQ(reason(rules, moved, modem), Reason::kRule);
  EXPECT_EQ(reason(Parse("shared_names = yes\nallow = any own *"), guest, web), Reason::kRule);
  EXPECT_EQ(reason(Rules(), guest, web), Reason::kOpen);
}

TEST_F(RulesTest, OfADirectoryAllFilesCountInTheirOrderOrNone) {
  const std::string directory = root_.Path("/etc/zor/access.d");
  const auto load = [&] {
    mistakes_.clear();
    return Rules::Load(directory, accounts_, mistakes_);
  };
  EXPECT_TRUE(load()->isOpen()) << "no directory";
  WriteFile(directory + "/90-b.conf", "mode = enforce\nallow = any own b\ndeny = any all\n");
  WriteFile(directory + "/10-a.conf", "mode = observe\ndeny = any own b");
  WriteFile(directory + "/50-c.conf.old", "nonsense");
  WriteFile(directory + "/.50-d.conf", "nonsense");
  const auto rules = load();
  ASSERT_TRUE(rules) << testing::PrintToString(mistakes_);
  EXPECT_EQ(rules->mode(), access::Mode::kObserve) << "the first one counts";
  EXPECT_THAT(rules->Explain(rules->Decide(User("web"), {Verb::kOwn, 0, "b"})), HasSubstr("/10-a.conf:2: deny"));

  WriteFile(directory + "/20-x.conf", "allow = any\n");
  EXPECT_FALSE(load());
  EXPECT_THAT(mistakes_, ElementsAre(HasSubstr("/20-x.conf:1: ")));
  WriteFile(directory + "/20-x.conf", "allow = any all\n");
  EXPECT_TRUE(load());
  ASSERT_EQ(::chmod((directory + "/20-x.conf").c_str(), 0666), 0);
  EXPECT_FALSE(load());
  EXPECT_THAT(mistakes_, ElementsAre(HasSubstr("may be written by anyone")));
  ASSERT_EQ(::remove((directory + "/20-x.conf").c_str()), 0);
  ASSERT_EQ(::mkfifo((directory + "/20-x.conf").c_str(), 0600), 0);
  EXPECT_FALSE(load()) << "and does not wait for a writer";
}

TEST_F(RulesTest, NoRuleAndNoModeMeansOpen) {
  EXPECT_TRUE(Parse("# nothing\n").Decide({}, {Verb::kOwn, 0, "x"}).allowed);
  EXPECT_EQ(Parse("mode = observe\n").Decide({}, {Verb::kOwn, 0, "x"}).reason, Reason::kUnmatched);
}

TEST_F(RulesTest, ThePackagedRulesKeepWhatIsNotEverybodys) {
  const auto rules = Rules::Load(DEFAULT_RULES, accounts_, mistakes_);
  ASSERT_TRUE(rules) << testing::PrintToString(mistakes_);
  EXPECT_THAT(access::FindShadows(*rules), IsEmpty());
  const struct {
    const char *users;  // those who may, in this order, of all
    Verb verb;
    std::uint32_t number;
    const char *name;
  } kCases[] = {
      {"_zor-cms ", Verb::kOwn, 0, "cms"},
      {"_zor-syslog ", Verb::kOwn, 0, "syslog"},
      {"_zor-cms ", Verb::kModule, 8, ""},
      {"_zor-bridge ", Verb::kOwn, 0, "bridge"},
      {"_zor-bridge _zor-cms _zor-syslog boss root ", Verb::kControl, 0xFF000, ""},
      {"_zor-cms _zor-syslog boss root ", Verb::kControl, 0xFF006, ""},
      {"_zor-bridge boss root ", Verb::kSend, 0x4B04, "syslog"},
      {"_zor-syslog boss root ", Verb::kSend, 0x4B10, "bridge"},
      {"boss root ", Verb::kSend, 0x4B06, "syslog"},
      {"boss root ", Verb::kSend, 0x4B05, "syslog"},
      {"_zor-cms boss root ", Verb::kSend, 0x5025, "cms"},
      {"_zor-cms boss root ", Verb::kSend, 0x500F, "cms"},
      {"boss root ", Verb::kSubscribe, 0x2DA01, "cms"},
      {"_zor-bridge _zor-cms _zor-syslog boss root web ", Verb::kSubscribe, 0x2DA01, ""},
      {"_zor-bridge _zor-cms _zor-syslog boss root web ", Verb::kOwn, 0, "web"},
      {"_zor-bridge _zor-cms _zor-syslog boss root web ", Verb::kSend, 0x5009, "cms"},
      {"_zor-bridge _zor-cms _zor-syslog boss root web ", Verb::kSend, 0x4B01, "syslog"},
      {"_zor-bridge _zor-cms _zor-syslog boss root web ", Verb::kPublish, 0x2DA01, ""},
  };
  for (const auto &each : kCases) {
    std::string may;
    for (const char *user : {"_zor-bridge", "_zor-cms", "_zor-syslog", "boss", "guest", "root", "web"}) {
      if (rules->Decide(User(user), {each.verb, each.number, each.name}).allowed) may += std::string(user) + ' ';
    }
    EXPECT_EQ(may, each.users) << access::WordsOf(each.verb).word << ' ' << each.number << ' ' << each.name;
    EXPECT_FALSE(rules->Decide(Board(1), {each.verb, each.number, each.name}).allowed);
  }
}

TEST_F(RulesTest, ARuleThatNeverDecidesIsFound) {
  const std::pair<const char *, int> kCases[] = {
      // The second rule, and whether it never decides after the first.
      {"deny = any own web*\nallow = user:web own web1", 2},
      {"allow = user:web own web\nallow = user:web unit:w.service own web", 2},
      {"deny = user:web,guest send 1-9 to a*\nallow = user:web send 2,3-4 to a,ab*", 2},
      {"allow = board:10.0.0.0/8 all\ndeny = board:10.2.0.0/16 own x", 2},
      {"deny = board:*,x all\nallow = board:modem,10.2.0.1 own x", 2},
      {"allow = board:modem all\ndeny = board:modem own x", 0},  // where there is no certificate
      {"deny = board:10.0.0.0/8 all\nallow = board:modem own x", 0},
      {"deny = user:* all\nallow = user:web own x", 2},
      {"allow = user:web own web\ndeny = user:web own web", 0},  // where the user is not known
      {"deny = user:web own web\nallow = any own web", 0},
      {"deny = any subscribe * for *\nallow = any subscribe *", 0},
      {"deny = any own web\nallow = any own web*", 0},
      {"allow = any serve /a/*\ndeny = any serve /a/b", 0},          // also about "/**"
      {"allow = any subscribe *\ndeny = any subscribe 0x2DA05", 0},  // also about all events
  };
  for (const auto &[text, line] : kCases) {
    const Rules rules = Parse(text);
    const auto shadows = access::FindShadows(rules);
    EXPECT_EQ(shadows.empty() ? 0 : shadows.front().rule->place.line, line) << text;
  }
}

}  // namespace
}  // namespace zor::test
