// Where trace lines go: standard output, the trace file, or a connected UDP socket.
#ifndef TRACE_OUTPUT_H
#define TRACE_OUTPUT_H

#include <cstdio>

namespace zor {

// The current stream; standard output when there is none.
std::FILE *TraceStream() noexcept;

// True when lines leave as datagrams, which are lost without notice when there is no receiver.
bool TraceGoesToSocket() noexcept;

// Ends a line: flushes it, and empties the trace file when it has reached its limit. False when the flush failed.
bool FinishTraceLine(std::FILE *stream) noexcept;

}  // namespace zor

#endif
