// Events: the names of their modules, and the text of a received one.
#ifndef PROGRAMS_MESSAGES_EVENT_H
#define PROGRAMS_MESSAGES_EVENT_H

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace zor::messages {

// The names of all modules with events: the library's, and those of installed type files.
std::vector<std::string> EventModules();

bool IsEvent(uint32_t type);
// Whether events of this type are JSON texts; others consist of items.
bool IsJsonEvent(uint32_t type);

// The module of an event type; empty if it is unknown.
std::string EventModuleOf(uint32_t type);

// The event type of a module, by its name or by the type's number. UnknownName for anything else.
uint32_t EventTypeOf(const std::string &module);

// JSON as events carry it: members in their order, and not too deep. Discarded if the text is not JSON.
nlohmann::ordered_json ParsePayload(const std::string &text);

// The text of a received event: its body, or what its items make up.
std::string EventText(uint32_t type, std::string_view body);

// The same as JSON. If its publisher sent no valid JSON, the text becomes a member of an object.
nlohmann::ordered_json EventJson(uint32_t type, std::string_view body);

}  // namespace zor::messages

#endif
