// What travels between a gateway's bridge and the fleet's broker, as both the bridge and the tool know it: the words of
// topics, and names as topic levels. docs/fleet.md has it byte by byte.
#ifndef PROGRAMS_FLEET_WIRE_H
#define PROGRAMS_FLEET_WIRE_H

#include <chrono>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace zor::fleet {

inline constexpr int kSchema = 1;
inline constexpr std::string_view kContentType = "application/json";
// Also the name of the bridge in requests that are for itself.
inline constexpr std::string_view kBridge = "bridge";

// The first level below PREFIX/GATEWAY.
namespace topic {
inline constexpr std::string_view kPresence = "presence";
inline constexpr std::string_view kStatus = "status";
inline constexpr std::string_view kEvent = "event";
inline constexpr std::string_view kLog = "log";
inline constexpr std::string_view kTrace = "trace";
inline constexpr std::string_view kGap = "gap";
inline constexpr std::string_view kCall = "call";
}  // namespace topic

// User properties of a publication.
namespace property {
inline constexpr std::string_view kSchema = "schema";
inline constexpr std::string_view kStream = "stream";
inline constexpr std::string_view kNumber = "number";
}  // namespace property

// The results of a request.
namespace result {
inline constexpr std::string_view kDone = "done";
inline constexpr std::string_view kRefused = "refused";  // the settings do not allow it
inline constexpr std::string_view kInvalid = "invalid";  // the topic or the payload
inline constexpr std::string_view kAbsent = "absent";    // no such daemon
inline constexpr std::string_view kGone = "gone";        // the daemon exited, or its reply cannot come
inline constexpr std::string_view kLate = "late";        // its time was over
inline constexpr std::string_view kBusy = "busy";        // too many
}  // namespace result

// A request's time: its message expiry.
inline constexpr std::chrono::seconds kDefaultTime{5};
inline constexpr std::chrono::seconds kMostTime{60};

inline constexpr std::size_t kMostLevelBytes = 128;
// The JSON text of an event or of a reply's fields; a longer one is left out, with its size in its place.
inline constexpr std::size_t kMostContentBytes = std::size_t{256} * 1024;

// A name as one level of a topic. Letters, digits, '-', '_', '.' and characters beyond ASCII stay; '%' and two
// upper-case hexadecimal digits stand for each byte of any other, of control characters and noncharacters beyond ASCII,
// and of what is not UTF-8. An empty name is "%". A level of more than kMostLevelBytes is cut and ends in "%~".
std::string Level(std::string_view name);

// The name that a level stands for. None for a level that was cut, and for any that Level does not make.
std::optional<std::string> NameOf(std::string_view level);

// The names as levels with slashes between them.
std::string Topic(std::initializer_list<std::string_view> names);

// A request's topic below PREFIX/GATEWAY.
struct CallTopic {
  std::string daemon;
  std::string type;  // a number or a name
};
// None for any other topic.
std::optional<CallTopic> ParseCallTopic(std::string_view text);

}  // namespace zor::fleet

#endif
