// Who has logged in, and how often somebody may try.
#ifndef ZORWEB_SESSIONS_H
#define ZORWEB_SESSIONS_H

#include <netinet/in.h>

#include <chrono>
#include <list>
#include <map>
#include <string>
#include <string_view>

namespace zor::web {

// Sessions end by themselves after some time. When there are too many, the oldest ends.
class Sessions {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Sessions(std::chrono::seconds time) : time_(time) {}

  // Returns the session's secret, for the browser's cookie.
  std::string Begin(Clock::time_point now);
  bool IsValid(std::string_view secret, Clock::time_point now) const;

 private:
  struct Session {
    std::string secret;
    Clock::time_point until;
  };

  std::chrono::seconds time_;
  std::list<Session> sessions_;  // the oldest first
};

// Failed logins: a few at once from an address, then one in a while. A right password is not tried either then, but a
// right token is always taken: nobody guesses one, and processes of this machine share the address of its
// administrator. All loopback addresses are one: a process of this machine may choose among millions of them.
class Attempts {
 public:
  using Clock = std::chrono::steady_clock;

  bool MayTry(in_addr_t address, Clock::time_point now) const;
  void OnFailure(in_addr_t address, Clock::time_point now);
  void OnSuccess(in_addr_t address) { free_.erase(Source(address)); }

 private:
  static in_addr_t Source(in_addr_t address);

  // When the failures of an address are forgotten, each of which takes one pause.
  std::map<in_addr_t, Clock::time_point> free_;
};

}  // namespace zor::web

#endif
