#include "zorweb/sessions.h"

#include <algorithm>

#include "programs/limits.h"
#include "zorweb/secrets.h"

namespace zor::web {

using namespace limits::zorweb;  // NOLINT(google-build-using-namespace): its own limits

std::string Sessions::Begin(Clock::time_point now) {
  sessions_.remove_if([now](const Session &each) { return each.until <= now; });
  if (sessions_.size() == kSessions) sessions_.pop_front();
  sessions_.push_back({MakeSecret(), now + time_});
  return sessions_.back().secret;
}

// All of them are compared, so that the time does not show which one was nearly right.
bool Sessions::IsValid(std::string_view secret, Clock::time_point now) const {
  bool valid = false;
  for (const Session &each : sessions_) valid |= IsSame(each.secret, secret) && each.until > now;
  return valid;
}

in_addr_t Attempts::Source(in_addr_t address) {
  const bool isLoopback = (ntohl(address) >> IN_CLASSA_NSHIFT) == IN_LOOPBACKNET;
  return isLoopback ? htonl(INADDR_LOOPBACK) : address;
}

bool Attempts::MayTry(in_addr_t address, Clock::time_point now) const {
  const auto found = free_.find(Source(address));
  return found == free_.end() || found->second - now <= kLoginPause * (kLoginTries - 1);
}

void Attempts::OnFailure(in_addr_t from, Clock::time_point now) {
  const in_addr_t address = Source(from);
  std::erase_if(free_, [now](const auto &each) { return each.second <= now; });
  // Whoever has so many addresses is not held up by this list; the one that is free soonest makes room.
  if (free_.size() >= kLoginAddresses && !free_.contains(address)) {
    free_.erase(std::ranges::min_element(free_, {}, [](const auto &each) { return each.second; }));
  }
  auto &free = free_[address];
  free = std::max(free, now) + kLoginPause;
}

}  // namespace zor::web
