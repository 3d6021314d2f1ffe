// The diagnosis of a daemon that does not reply.
#include "programs/wait_graph.h"

#include <gtest/gtest.h>

namespace zor::test {
namespace {

using daemon::Daemon;
using daemon::Waits;

Daemon Make(const std::string &name, const std::vector<std::string> &waitsFor = {}, uint64_t unread = 0,
            char state = 'S') {
  Daemon daemon;
  daemon.name = name;
  daemon.pid = 1;
  daemon.state = state;
  daemon.unread = unread;
  daemon.unreadMs = unread == 0 ? 0 : 12'300;
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
Daemon NotWaiting(Daemon daemon) {
  daemon.pending.back().waits = Waits::kNo;
  return daemon;
}

struct Case {
  std::vector<Daemon> daemons;  // the first is the subject
  const char *verdict;
};

TEST(WaitGraphTest, TheVerdictNamesTheDaemonThatBlocksTheOthers) {
  const Case cases[] = {
      {{Make("web")}, "web is idle: no daemon waits for it, and it waits for no daemon"},
      {{Make("web"), Make("cms", {"web"})},
       "web has read its messages and waits for no daemon, but has not replied to 1 request, the oldest 3.2 s old"},
      {{Make("web", {}, 1)}, "web has not read for 12.3 s: 1 unread message"},
      {{Make("web", {}, 2, 'T')}, "web is stopped (SIGCONT resumes it): 2 unread messages, the oldest 12.3 s old"},
      {{Make("web", {}, 0, 'Z')}, "web has exited, and its parent has not reaped it"},
      {{Make("web", {"cms"}), Make("cms", {}, 4)},
       "web waits for cms, which has not read for 12.3 s: 4 unread messages"},
      {{Make("web", {"old", "cms"}), Make("old", {}, 9), Make("cms", {"db"}), Make("db", {}, 0, 'D')},
       "web waits for cms, which waits for db, which is blocked in the kernel, by a disk or a device"},
      {{Make("web", {"cms"}), Make("cms")},
       "web waits for cms, which has read its messages and waits for no daemon, but has not replied for 3.2 s"},
      {{Make("web", {"cms"})}, "web waits for cms, which is not on the bus"},
      {{Make("web", {""})}, "web waits at a barrier"},
      {{Make("web", {"cms"}), Make("cms", {""})}, "web waits for cms, which waits at a barrier"},
      {{Make("web", {"cms"}), Make("cms", {"web"}, 3)},
       "web waits for cms, which has not read for 12.3 s: 3 unread messages"},
      {{Make("web", {"cms"}), Make("cms", {"web"}, 0, 'T')},
       "web waits for cms, which is stopped (SIGCONT resumes it)"},
      {{Make("web", {"web"})}, "web waits for web: a cycle, blocked for 3.2 s"},
      {{Make("web", {"cms"}), Make("cms", {"web"})},
       "web waits for cms, which waits for web: a cycle, blocked for 3.2 s"},
      {{Make("web", {"cms"}), Make("cms", {"db"}), Make("db", {"cms"})},
       "web waits for cms, which waits for db, which waits for cms: a cycle, blocked for 3.2 s"},
      {{NotWaiting(Make("web", {"cms"})), Make("cms", {"web"})},
       "web has read its messages and waits for no daemon, but has not replied to 1 request, the oldest 3.2 s old"},
      {{NotWaiting(Make("web", {"cms"})), NotWaiting(Make("cms", {"web"}))},
       "web is idle: no daemon waits for it, and it waits for no daemon, although its own requests have no reply yet"},
      {{Make("web"), Perhaps("cms", "web", 0x4002)},
       "web has read its messages and waits for no daemon, but has not replied to 1 request, the oldest 2.0 s old; "
       "assuming that 0x4002 is a request"},
      {{Perhaps("web", "cms", 0x4002), Make("cms", {"db"}), Perhaps("db", "web", 0x4001)},
       "web waits for cms, which waits for db, which waits for web: a cycle, blocked for 2.0 s; "
       "assuming that 0x4001 and 0x4002 are requests"},
      {{Make("web", {}, 1), Make("web", {"cms"})}, "web has not read for 12.3 s: 1 unread message"},
  };
  for (const Case &each : cases) {
    const daemon::WaitChain chain = FollowWaits(each.daemons, each.daemons.front());
    EXPECT_EQ(Verdict(chain, CountRequestsTo(each.daemons, "web")), each.verdict);
  }
}

}  // namespace
}  // namespace zor::test
