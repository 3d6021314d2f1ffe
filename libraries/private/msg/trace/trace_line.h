// A trace line of the library itself: it names the source file and the line that print it.
#ifndef TRACE_TRACE_LINE_H
#define TRACE_TRACE_LINE_H

#include <zor/export.h>

#include <cstdint>

namespace zor {

// A module name and where it was written. Callers pass the name alone; file and line are then their own.
// std::source_location would do, but clang 14, which checks this code, lacks it.
struct TraceModule {
  TraceModule(const char *moduleName, const char *callersFile = __builtin_FILE(),
              std::uint32_t callersLine = __builtin_LINE()) noexcept
      : name(moduleName), file(callersFile), line(callersLine) {}

  const char *name;
  const char *file;
  std::uint32_t line;
};

// Prints a line, with the base name of the file, when the settings admit the module at this level.
void Trace(const TraceModule &module, std::uint32_t level, const char *format, ...) noexcept ZOR_PRINTF(3, 4);

}  // namespace zor

#endif
