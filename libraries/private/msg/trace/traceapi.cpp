// The vocabulary of levels, the directory of modules, and the display of the settings.
#include <zor/msg_head.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <array>
#include <cstdarg>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "base/list.h"
#include "trace/levels.h"
#include "trace/trace.h"

namespace zor {
namespace {

struct NamedLevel {
  const char *name;
  std::uint32_t level;
};

// Looked up from the front in both directions: "all" is a second name for the level of "debug".
constexpr std::array<NamedLevel, 7> kLevels = {{{"none", ZOR_TRACE_NONE},
                                                {"fatal", ZOR_TRACE_FATAL},
                                                {"error", ZOR_TRACE_ERROR},
                                                {"warning", ZOR_TRACE_WARNING},
                                                {"info", ZOR_TRACE_INFO},
                                                {"debug", ZOR_TRACE_DEBUG},
                                                {"all", ZOR_TRACE_DEBUG}}};

// A module that announced itself. The directory does not affect filtering.
struct Module {
  Module *next;
  char *name;
};

constinit Module *modules = nullptr;

constexpr char kRowFormat[] = "%-12s %-20s %-8s\r\n";

}  // namespace

void TraceDisplayOneItem(const char *appName, const TraceEntry *list, std::uint32_t header) noexcept {
  if (header != 0) ZOR_Debug_Print(kRowFormat, "App", "Module", "Level");
  for (const TraceEntry *entry : ListView(list)) {
    ZOR_Debug_Print(kRowFormat, entry == list ? appName : "", entry->module, ZOR_TRACE_GetLevelStr(entry->level));
  }
}

}  // namespace zor

uint32_t ZOR_TRACE_GetLevelByString(const char *name) {
  if (name == nullptr) return ZOR_TRACE_NONE;
  for (const zor::NamedLevel &known : zor::kLevels) {
    if (std::strcmp(known.name, name) == 0) return known.level;
  }
  return ZOR_TRACE_NONE;
}

const char *ZOR_TRACE_GetLevelStr(uint32_t level) {
  for (const zor::NamedLevel &known : zor::kLevels) {
    if (known.level == level) return known.name;
  }
  return zor::kLevels[0].name;
}

uint32_t ZOR_TRACE_RegModule(const char *module) {
  if (module == nullptr) return ZOR_E_NO_MEMORY;  // not an argument error: callers test for this status
  const auto isKnown = [module](const zor::Module &known) { return std::strcmp(known.name, module) == 0; };
  if (zor::Find(zor::modules, isKnown) != nullptr) return ZOR_OK;
  auto node = zor::GuardedNew<zor::Module>();
  zor::MallocPtr<char> name(::strdup(module));
  if (node == nullptr || name == nullptr) return ZOR_E_NO_MEMORY;
  node->name = name.release();
  zor::Append(zor::modules, node.release());
  return ZOR_OK;
}

void ZOR_TRACE_Display(void) {
  zor::TraceDisplayOneItem(m_aucAppName, zor::TraceEntries(), 1);
  ZOR_Debug_Print("\r\n trace output to %s \r\n", ZOR_TRACE_GetOutput() == 0 ? "stdout" : "file");
}

int32_t ZOR_Debug_Print(const char *format, ...) {
  if (format == nullptr) return -1;
  std::va_list arguments;
  va_start(arguments, format);
  const int32_t length = std::vprintf(format, arguments);
  va_end(arguments);
  return length;
}

uint32_t ZOR_Debug_RegModCmds(void) {
  return ZOR_OK;
}
