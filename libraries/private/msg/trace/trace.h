// The workers behind the trace interface, and the settings that the message server sends.
#ifndef TRACE_TRACE_H
#define TRACE_TRACE_H

#include <zor/msg_wire.h>
#include <zor/trace.h>

#include <cstdint>

namespace zor {

// The setting of one module. The module named "all" stands for every module that has no setting of its own.
struct TraceEntry {
  TraceEntry *next;
  char module[ZOR_MSG_NAME_SIZE];
  std::uint32_t level;  // never 0: a setting of 0 removes its entry
  TraceEntry *sameBucket;
};

// Stores, changes or (level 0) removes the setting of one module; null means "all". A setting of "all" first removes
// every entry. Names are looked up whole but stored cut to 11 characters. Returns 0 or ZOR_E_NO_MEMORY.
std::uint32_t TraceCtxSetPackageLevel(TraceEntry **list, const char *module, std::uint32_t level) noexcept;

// Prints one application's settings: the column heads when header is nonzero, then one row for each entry.
void TraceDisplayOneItem(const char *appName, const TraceEntry *list, std::uint32_t header) noexcept;

// Trace lines show the granted name from here on; then applies the settings block of the registration reply. A block
// that is null or too short for its head sets nothing else; a torn last entry is left out.
void TraceMsgInitRespProc(const void *block, std::uint32_t length) noexcept;

}  // namespace zor

#endif
