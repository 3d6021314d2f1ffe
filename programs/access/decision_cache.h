// Decisions by who, what, type and name. A later one takes the place of one with the same place in the table, so that
// no client makes it grow.
#ifndef PROGRAMS_ACCESS_DECISION_CACHE_H
#define PROGRAMS_ACCESS_DECISION_CACHE_H

#include <zor/msg_wire.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "programs/access/action.h"
#include "programs/limits.h"

namespace zor::access {

class DecisionCache {
 public:
  static constexpr std::int32_t kUnknown = INT32_MIN;  // no number of Rules

  // Without room nothing is kept.
  explicit DecisionCache(bool hasRoom = false) : entries_(hasRoom ? limits::access::kDecisions : 0) {}

  struct Key {
    std::uint64_t subject;  // 0 is nobody
    std::uint32_t number;
    std::array<char, ZOR_MSG_NAME_SIZE> name;
    Verb verb;

    friend bool operator==(const Key &, const Key &) = default;
  };

  // Whether the action can be kept: names that are longer than those of daemons are not.
  static bool MakeKey(std::uint64_t subject, const Action &action, Key &key) {
    if (action.name.size() > key.name.size()) return false;
    key = {subject, action.number, {}, action.verb};
    action.name.copy(key.name.data(), key.name.size());
    return true;
  }

  // The number of the rule that decided.
  std::int32_t Find(const Key &key) const {
    if (entries_.empty()) return kUnknown;
    const Entry &entry = entries_[PlaceOf(key)];
    return entry.key == key ? entry.rule : kUnknown;
  }
  void Add(const Key &key, std::int32_t rule) {
    if (!entries_.empty()) entries_[PlaceOf(key)] = {key, rule};
  }

 private:
  struct Entry {
    Key key = {};
    std::int32_t rule = kUnknown;
  };

  static std::size_t PlaceOf(const Key &key) {
    constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15u;
    std::uint64_t start = 0;
    std::uint32_t end = 0;
    std::memcpy(&start, key.name.data(), sizeof start);
    std::memcpy(&end, key.name.data() + sizeof start, sizeof end);
    std::uint64_t hash = key.subject * kOdd + key.number;
    hash = (hash ^ (hash >> 32)) * kOdd + start;
    hash = (hash ^ (hash >> 32)) * kOdd + end + (std::uint64_t{static_cast<unsigned char>(key.verb)} << 32);
    hash = (hash ^ (hash >> 32)) * kOdd;
    return static_cast<std::size_t>(hash >> 32) & (limits::access::kDecisions - 1);
  }

  std::vector<Entry> entries_;
};

}  // namespace zor::access

#endif
