#include "notifyclient/notify_module.h"

#include <zor/notifyclt.h>

#include <array>
#include <span>
#include <string_view>

namespace zor::notify {
namespace {

struct Module {
  const char *name;
  std::uint32_t mid;
};

constexpr std::array kModules = {
    Module{"cms", 8},        Module{"web", 26},        Module{"sms", 1},       Module{"ussd", 2},
    Module{"dialup", 4},     Module{"phonebook", 6},   Module{"net", 7},       Module{"device", 9},
    Module{"sim", 10},       Module{"statistics", 18}, Module{"status", 19},   Module{"syswatch", 20},
    Module{"global", 27},    Module{"atserver", 31},   Module{"stk", 33},      Module{"led", 35},
    Module{"oled", 14},      Module{"diagnosis", 49},  Module{"bip", 45},      Module{"atnlproxy", 58},
    Module{"gpsapp", 59},    Module{"pdp", 56},        Module{"tts", 68},      Module{"recorder", 79},
    Module{"xmodemupg", 64}, Module{"ipstack", 61},    Module{"qlclient", 99},
};

// Of all modules only these two connect when the bus is initialised under their name.
constexpr std::array kConnectingModules = {Module{"cms", 8}, Module{"web", 26}};

std::uint32_t IdIn(std::span<const Module> modules, const char *name) {
  if (name == nullptr) return 0;
  for (const Module &module : modules) {
    if (std::string_view(module.name) == name) return IsModuleId(module.mid) ? module.mid : 0;
  }
  return 0;
}

}  // namespace

std::uint32_t ConnectingModuleId(const char *name) noexcept {
  return IdIn(kConnectingModules, name);
}

}  // namespace zor::notify

uint32_t ZOR_NOTIFYCLT_GetMIDByName(const char *name) {
  return zor::notify::IdIn(zor::notify::kModules, name);
}

uint32_t ZOR_NOTIFYCLT_GetAllowMIDByName(const char *name) {
  return ZOR_NOTIFYCLT_GetMIDByName(name);
}

const char *ZOR_NOTIFYCLT_GetNameByMID(uint32_t mid) {
  for (const zor::notify::Module &module : zor::notify::kModules) {
    if (module.mid == mid) return module.name;
  }
  return nullptr;
}
