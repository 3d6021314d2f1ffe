// What the bridge takes from a broker and from the bus: the input is a message type of four bytes, and a topic level, a
// request's payload, an event or a reply. For every input a level can be turned back and cannot hurt a topic, a request
// is refused with a reason or becomes a message within bounds, and what is published is JSON.
#include <zor/event.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "fuzz.h"
#include "programs/fleet_wire.h"
#include "programs/types/own_types.h"
#include "zorbridge/call_text.h"
#include "zorbridge/event_text.h"

namespace {

using zor::fuzz::Require;
using namespace zor::bridge;  // NOLINT(google-build-using-namespace): the code under test
namespace fleet = zor::fleet;

// The input's type, or one that the table knows.
uint32_t TypeOf(uint32_t number) {
  const auto &known = zor::types::OwnTypes();
  return number >> 31 != 0 ? known[number % known.size()].first : number & 0xfffff;
}

void CheckLevel(const std::string &text) {
  const std::string level = fleet::Level(text);
  Require(!level.empty() && level.size() <= fleet::kMostLevelBytes, "a level has a bounded length");
  Require(
      std::none_of(level.begin(), level.end(),
                   [](char each) { return static_cast<unsigned char>(each) <= ' ' || std::strchr("/+#$\x7f", each); }),
      "a level has neither separators nor wildcards nor controls");
  Require(level.ends_with("%~") || fleet::NameOf(level) == text, "a whole level is its name");
  const auto name = fleet::NameOf(text);
  Require(!name || fleet::Level(*name) == text, "a name has one level");
  const auto call = fleet::ParseCallTopic(text);
  Require(!call || fleet::Topic({fleet::topic::kCall, call->daemon, call->type}) == text, "a request has one topic");
}

void CheckMembers(const std::string &members) {
  Require(members.size() <= 2 * fleet::kMostContentBytes, "what is published is bounded");
  Require(nlohmann::json::accept("{" + members + "}"), "what is published is JSON");
}

void CheckCall(uint32_t type, const std::string &payload) {
  std::string problem;
  if (const auto call = ParseCall(type, payload, &problem)) {
    Require(call->type == type && call->body.size() <= 2 * kMostCallBytes, "a message is within bounds");
    CheckMembers(TextOfReply(type, call->data, call->body));
  } else {
    Require(!problem.empty(), "a refusal has a reason");
    CheckMembers(TextOfFailure(fleet::result::kInvalid, problem));
  }
  ParseCallType(payload, &problem);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  uint32_t number;
  if (size < sizeof number) return 0;
  std::memcpy(&number, data, sizeof number);
  const std::string text(reinterpret_cast<const char *>(data) + sizeof number, size - sizeof number);
  const uint32_t type = TypeOf(number);
  CheckLevel(text);
  CheckCall(type, text);
  CheckMembers(TextOfReply(type, number, text));
  const uint32_t event = ZOR_EVT_JSON_FIRST + number % (ZOR_EVT_ITEMS_LAST - ZOR_EVT_JSON_FIRST + 1);
  CheckMembers(TextOfEvent(event, number, text).members);
  return 0;
}
