// What the rules have refused, or would have: how often who asked for what. The lines are those of an observation, from
// which an operator's tool can write rules.
#ifndef PROGRAMS_ACCESS_REFUSALS_H
#define PROGRAMS_ACCESS_REFUSALS_H

#include <cstdint>
#include <map>
#include <string>

#include "programs/access/action.h"
#include "programs/access/identity.h"
#include "programs/access/rules.h"

namespace zor::access {

// The words of an identity and of an action, as rules have them; users and groups are numbers.
std::string WhoText(const Identity &identity);
std::string WhatText(const Action &action);

class Refusals {
 public:
  // who: the text of the identity.
  void Add(const std::string &who, const Action &action, const Verdict &verdict, const Rules &rules);

  std::uint64_t total() const { return total_; }
  // How many of them are too various, or too long, to be listed.
  std::uint64_t unlisted() const { return unlisted_; }
  // Lines "seen = COUNT WHO... WHAT", each behind a comment with what refused it. What no rule can allow, because
  // another owner has the name or there is none, is only a comment.
  std::string Text(std::size_t mostBytes = SIZE_MAX) const;

 private:
  struct Entry {
    std::uint64_t count = 0;
    std::string why;
    bool isComment = false;
  };

  std::map<std::string, Entry> entries_;
  std::uint64_t total_ = 0;
  std::uint64_t unlisted_ = 0;
};

}  // namespace zor::access

#endif
