// JSON of other machines, and for them: any member may be missing or of the wrong type, which then counts as empty.
#ifndef ZORCTL_FOREIGN_JSON_H
#define ZORCTL_FOREIGN_JSON_H

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zor::ctl {

using ForeignJson = nlohmann::ordered_json;

// A member; null if there is none.
const ForeignJson &MemberOf(const ForeignJson &object, const char *name);
std::string TextOf(const ForeignJson &object, const char *name);
// The start of it, for the cell of a table.
std::string ShortTextOf(const ForeignJson &object, const char *name);
uint64_t CountOf(const ForeignJson &object, const char *name);
// The texts of an array.
std::vector<std::string> TextsOf(const ForeignJson &object, const char *name);

// A request as text. Failure (usage) if the user's words in it are not UTF-8.
std::string RequestText(const ForeignJson &request);

// A time of RFC 3339 in UTC, with or without a fraction.
using SystemTime = std::chrono::system_clock::time_point;
std::optional<SystemTime> TimeOf(const ForeignJson &object, const char *name);

// The message server's list with only those members that have the right type, so that it can be used as if it came from
// our own server. No client is "self": that one is the gateway's bridge.
nlohmann::json CheckedList(const ForeignJson &list);

}  // namespace zor::ctl

#endif
