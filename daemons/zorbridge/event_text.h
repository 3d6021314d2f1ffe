// Events as what the fleet receives.
#ifndef ZORBRIDGE_EVENT_TEXT_H
#define ZORBRIDGE_EVENT_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace zor::bridge {

struct EventRecord {
  std::string module;   // its name; of a type without one the number
  std::string topic;    // below PREFIX/GATEWAY: event/MODULE/NAME
  std::string group;    // event/MODULE, under which lost ones are counted
  std::string members;  // JSON members without braces
};

// The name of an event type's module; of a type without one the number.
std::string EventModule(uint32_t type);

// An event that has been received. Its JSON is passed on as its publisher wrote it, without white space between the
// tokens and with U+FFFD for what is not UTF-8; what is not JSON, or more deeply nested than zor::messages reads, goes
// as base64. Contents beyond fleet::kMostContentBytes are left out.
EventRecord TextOfEvent(uint32_t type, uint32_t data, std::string_view body);

}  // namespace zor::bridge

#endif
