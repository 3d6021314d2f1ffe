#include "programs/messages/event.h"

#include <zor/dmmsg.h>
#include <zor/event.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "common/malloc_ptr.h"
#include "programs/messages/invalid.h"
#include "programs/messages/json_text.h"
#include "programs/messages/number.h"
#include "programs/messages/text.h"
#include "programs/types/book.h"

namespace zor::messages {
namespace {

using Json = nlohmann::ordered_json;  // keeps the publisher's order of members

// The text of an event that consists of items; empty without one.
std::string ItemText(uint32_t type, std::string_view body) {
  ZOR_MSG_HEAD head = {};
  head.type = type;
  head.bodyLength = static_cast<uint32_t>(body.size());
  // Whole words, with zeros after the body: like a received message, which has such slack, since the library tolerates
  // items that reach a little beyond the body.
  constexpr std::size_t kBeyond = std::size_t{2} * ZOR_DMMSG_ITEM_HEAD_SIZE + sizeof(uint32_t);
  std::vector<uint32_t> block((sizeof head + body.size() + kBeyond) / sizeof(uint32_t) + 1);
  std::memcpy(block.data(), &head, sizeof head);
  std::memcpy(reinterpret_cast<char *>(block.data()) + sizeof head, body.data(), body.size());
  char *text = nullptr;
  uint32_t length = 0;
  if (ZOR_EVT_GetEventContent(reinterpret_cast<const ZOR_MSG_HEAD *>(block.data()), &text, &length) != 0) return {};
  const MallocPtr<char> owner(text);
  return {text, length};
}

}  // namespace

std::vector<std::string> EventModules() {
  std::vector<std::string> modules;
  for (uint32_t type = ZOR_EVT_ALL + 1; type <= ZOR_MSG_EVENT_LAST; ++type) {
    if (const char *module = ZOR_EVT_GetEventModuleNameByEventType(type)) modules.emplace_back(module);
  }
  for (const types::TypeFile &file : types::TypeBook::Installed().Files()) {
    for (const types::Module &module : file.modules) {
      if (ZOR_EVT_GetEventModuleNameByEventType(module.type) == nullptr) modules.push_back(module.name);
    }
  }
  return modules;
}

bool IsEvent(uint32_t type) {
  return type > ZOR_EVT_ALL && type <= ZOR_MSG_EVENT_LAST;
}

bool IsJsonEvent(uint32_t type) {
  return type >= ZOR_EVT_JSON_FIRST && type <= ZOR_EVT_JSON_LAST;
}

std::string EventModuleOf(uint32_t type) {
  if (const char *module = ZOR_EVT_GetEventModuleNameByEventType(type)) return module;
  const types::Module *described = types::TypeBook::Installed().FindModule(type);
  return described == nullptr ? "" : described->name;
}

uint32_t EventTypeOf(const std::string &module) {
  const uint32_t type = ZOR_EVT_GetMsgTypeByEventModuleName(module.c_str());
  if (type != ZOR_EVT_ALL) return type;
  if (const auto number = ParseUint32(module); number && IsEvent(*number)) return *number;
  if (const types::Module *described = types::TypeBook::Installed().FindModule(module)) return described->type;
  throw UnknownName("unknown event module " + Escape(module), "known ones: " + Join(EventModules(), ", "));
}

nlohmann::ordered_json ParsePayload(const std::string &text) {
  return ParseJson(ToUtf8(text));
}

std::string EventText(uint32_t type, std::string_view body) {
  std::string text = IsJsonEvent(type) ? std::string(body) : ItemText(type, body);
  text.resize(std::strlen(text.c_str()));  // some publishers send the NUL too
  return text;
}

nlohmann::ordered_json EventJson(uint32_t type, std::string_view body) {
  const std::string text = EventText(type, body);
  Json value = ParsePayload(text);
  if (!value.is_discarded()) return value;
  const std::string module = EventModuleOf(type);
  return {{"Module", module.empty() ? Json() : Json(module)}, {"Type", type}, {"Text", text}};
}

}  // namespace zor::messages
