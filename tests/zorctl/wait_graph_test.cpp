// The diagnosis of a daemon that does not reply.
#include "zorctl/wait_graph.h"

#include <gtest/gtest.h>

namespace zor::test {
namespace {

using ctl::Daemon;
using ctl::Waits;

Daemon Make(const std::string &name, const std::vector<std::string> &waitsFor = {}, uint64_t unread = 0,
            char state = 'S') {
  Daemon daemon{name, 1, state, unread, false, unread == 0 ? 0 : uint64_t{12'300}, {}};
  for (const std::string &other : waitsFor) daemon.pending.push_back({other, 0x4001, 7, 3'200, Waits::kNo});
  if (!waitsFor.empty()) daemon.pending.back().waits = Waits::kYes;
  return daemon;
}

// Its latest message to the other may be a request.
Daemon Perhaps(const std::string &name, const std::string &other, uint32_t type) {
  Daemon daemon = Make(name);
  daemon.pending.push_back({other, type, 7, 2'000, Waits::kPerhaps});
  return daemon;
}

// It does not wait for that.
Daemon GoneOn(Daemon daemon) {
  daemon.pending.back().waits = Waits::kNo;
  return daemon;
}

struct Case {
  std::vector<Daemon> daemons;  // the first is the subject
  const char *verdict;
};

TEST(WaitGraphTest, TheVerdictNamesWhoHoldsTheOthersUp) {
  const Case cases[] = {
      {{Make("web")}, "nothing waits for web, and it waits for nobody"},
      {{Make("web"), Make("cms", {"web"})},
       "web has read its messages and waits for nobody: 1 request waits for its answer, the oldest for 3.2 s"},
      {{Make("web", {}, 1)}, "web has not read for 12.3 s: 1 message waits for it"},
      {{Make("web", {}, 2, 'T')},
       "web is stopped (SIGCONT lets it go on): 2 messages wait for it, the oldest for 12.3 s"},
      {{Make("web", {}, 0, 'Z')}, "web has ended, and its parent has not noticed"},
      {{Make("web", {"cms"}), Make("cms", {}, 4)},
       "web waits for cms, which has not read for 12.3 s: 4 messages wait for it"},
      {{Make("web", {"old", "cms"}), Make("old", {}, 9), Make("cms", {"db"}), Make("db", {}, 0, 'D')},
       "web waits for cms, which waits for db, which is held up in the kernel, by a disk or a device"},
      {{Make("web", {"cms"}), Make("cms")},
       "web waits for cms, which has read its messages and waits for nobody, but has not answered for 3.2 s"},
      {{Make("web", {"cms"})}, "web waits for cms, which is not on the bus"},
      {{Make("web", {""})}, "web waits at a barrier"},
      {{Make("web", {"cms"}), Make("cms", {""})}, "web waits for cms, which waits at a barrier"},
      {{Make("web", {"cms"}), Make("cms", {"web"}, 3)},
       "web waits for cms, which has not read for 12.3 s: 3 messages wait for it"},
      {{Make("web", {"cms"}), Make("cms", {"web"}, 0, 'T')},
       "web waits for cms, which is stopped (SIGCONT lets it go on)"},
      {{Make("web", {"web"})}, "web waits for web: a cycle, in which nobody has gone on for 3.2 s"},
      {{Make("web", {"cms"}), Make("cms", {"web"})},
       "web waits for cms, which waits for web: a cycle, in which nobody has gone on for 3.2 s"},
      {{Make("web", {"cms"}), Make("cms", {"db"}), Make("db", {"cms"})},
       "web waits for cms, which waits for db, which waits for cms: a cycle, in which nobody has gone on for 3.2 s"},
      {{GoneOn(Make("web", {"cms"})), Make("cms", {"web"})},
       "web has read its messages and waits for nobody: 1 request waits for its answer, the oldest for 3.2 s"},
      {{GoneOn(Make("web", {"cms"})), GoneOn(Make("cms", {"web"}))},
       "nothing waits for web, and it waits for nobody: it went on after it had sent what has no answer yet"},
      {{Make("web"), Perhaps("cms", "web", 0x4002)},
       "web has read its messages and waits for nobody: 1 request waits for its answer, the oldest for 2.0 s; "
       "provided that 0x4002 is a request"},
      {{Perhaps("web", "cms", 0x4002), Make("cms", {"db"}), Perhaps("db", "web", 0x4001)},
       "web waits for cms, which waits for db, which waits for web: a cycle, in which nobody has gone on for 2.0 s; "
       "provided that 0x4001 and 0x4002 are requests"},
      {{Make("web", {}, 1), Make("web", {"cms"})}, "web has not read for 12.3 s: 1 message waits for it"},
  };
  for (const Case &each : cases) {
    const ctl::WaitChain chain = FollowWaits(each.daemons, each.daemons.front());
    EXPECT_EQ(Verdict(chain, CountRequestsTo(each.daemons, "web")), each.verdict);
  }
}

}  // namespace
}  // namespace zor::test
