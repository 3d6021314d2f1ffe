#include "zorctl/access_query.h"

#include <algorithm>

#include "programs/access/rule_reader.h"
#include "zorctl/exit_code.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

constexpr char kAdvice[] = "write, for example, user:web send DB_SAVE to cms";

// The only item of a list; nothing when it is empty.
template <class Item>
const Item *Only(const std::vector<Item> &items, const char *what) {
  if (items.size() > 1) throw Failure(kExitUsage, std::string("more than one ") + what, "ask about each by itself");
  return items.empty() ? nullptr : &items.front();
}

const std::string *OnlyText(const std::vector<access::Pattern> &patterns, const char *what) {
  const access::Pattern *pattern = Only(patterns, what);
  if (pattern != nullptr && pattern->isPrefix) {
    throw Failure(kExitUsage, Escape(pattern->text) + "* is not one " + what, "ask about each by itself");
  }
  return pattern == nullptr ? nullptr : &pattern->text;
}

access::Identity IdentityOf(const access::Who &who, const access::Accounts &accounts) {
  access::Identity identity;
  if (who.isLocal) throw Failure(kExitUsage, "user:* is not one user", kAdvice);
  if (const uid_t *user = Only(who.users, "user")) {
    identity.user = *user;
    identity.groups = accounts.GroupsOf(*user);
  }
  if (!who.groups.empty()) {
    auto &groups = identity.groups ? *identity.groups : identity.groups.emplace();
    groups.insert(groups.end(), who.groups.begin(), who.groups.end());
    std::sort(groups.begin(), groups.end());
  }
  if (const std::string *unit = OnlyText(who.units, "unit")) identity.unit = *unit;
  if (const std::string *executable = OnlyText(who.executables, "executable")) identity.executable = *executable;
  if (const access::Boards *board = Only(who.boards, "board")) {
    if (board->mask != UINT32_MAX) throw Failure(kExitUsage, "not one board", "give its address");
    identity.board = board->address;
  }
  if (const std::string *board = OnlyText(who.boardNames, "board")) {
    identity.certificate = *board;
    if (!identity.board) identity.board = 0;
  }
  return identity;
}

}  // namespace

AccessQuery ParseAccessQuery(const std::vector<std::string> &words, const access::Accounts &accounts) {
  std::vector<std::string> mistakes;
  access::RuleReader reader(accounts, mistakes);
  access::Words rest(words.begin(), words.end());
  access::Who who;
  access::What what;
  const access::Place place = {"WHO WHAT", 1};
  if (!reader.ReadWho(rest, place, who) || !reader.ReadWhat(rest, place, what)) {
    throw Failure(kExitUsage, Escape(mistakes.front().substr(place.Text().size() + 2)), kAdvice);
  }
  AccessQuery query = {IdentityOf(who, accounts), what.verb, 0, ""};
  if (what.verb == access::Verb::kAll) throw Failure(kExitUsage, "all is not one thing that is done", kAdvice);
  if (const access::Range *range = Only(what.numbers, "type")) {
    if (range->first != range->last) throw Failure(kExitUsage, "a range is not one type", "ask about each by itself");
    query.number = range->first;
  }
  if (const std::string *name = OnlyText(what.names, "name")) query.name = *name;
  return query;
}

}  // namespace zor::ctl
