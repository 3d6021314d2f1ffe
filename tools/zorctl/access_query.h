// A question about the rules, in their own words: who, and what it asks for.
#ifndef ZORCTL_ACCESS_QUERY_H
#define ZORCTL_ACCESS_QUERY_H

#include <string>
#include <vector>

#include "programs/access/accounts.h"
#include "programs/access/action.h"
#include "programs/access/identity.h"

namespace zor::ctl {

struct AccessQuery {
  access::Identity who;
  access::Verb verb;
  std::uint32_t number = 0;
  std::string name;
};

// From words such as "user:web unit:web.service send DB_SAVE to cms". A user has its groups; what is not given is not
// known. Failure (usage) for words of which there may be only one, and for malformed ones.
AccessQuery ParseAccessQuery(const std::vector<std::string> &words, const access::Accounts &accounts);

}  // namespace zor::ctl

#endif
