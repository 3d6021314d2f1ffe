// Which module owns which event type.
#include <zor/event.h>

#include <array>
#include <cstring>

namespace {

struct Entry {
  uint32_t type;
  const char *module;
};

constexpr std::array kModules = {
    Entry{0x2DA65, "wan"},        Entry{0x2DA66, "lan"},           Entry{0x2DA67, "wlan"},
    Entry{0x2DA68, "dhcp"},       Entry{0x2DA69, "web"},           Entry{0x2DA01, "device"},
    Entry{0x2DA02, "monitor"},    Entry{0x2DA03, "plugin_queues"}, Entry{0x2DA04, "event_tracking"},
    Entry{0x2DA6A, "webconsole"}, Entry{0x2DA6B, "online_update"}, Entry{0x2DA6C, "usb"},
    Entry{0x2DA05, "quorel"},     Entry{0x2DA6D, "behavior"},      Entry{0x2DA06, "autoUpdate"},
    Entry{0x2DA07, "network"},    Entry{0x2DA08, "quorelproxy"},   Entry{0x2DA09, "feed"},
};

}  // namespace

const char *ZOR_EVT_GetEventModuleNameByEventType(uint32_t type) {
  for (const Entry &entry : kModules) {
    if (entry.type == type) return entry.module;
  }
  return nullptr;
}

uint32_t ZOR_EVT_GetMsgTypeByEventModuleName(const char *module) {
  if (module == nullptr) return ZOR_EVT_ALL;
  for (const Entry &entry : kModules) {
    if (std::strcmp(entry.module, module) == 0) return entry.type;
  }
  return ZOR_EVT_ALL;
}
