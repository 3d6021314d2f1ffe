// Where trace lines go: standard output, the trace file, or a connected UDP socket.
#ifndef TRACE_OUTPUT_H
#define TRACE_OUTPUT_H

#include <cstdio>

namespace zor {

// The current stream; standard output is taken when there is none.
std::FILE *TraceStream() noexcept;

// Ends a line: sends it off, and empties the trace file when it has reached its limit.
void FinishTraceLine(std::FILE *stream) noexcept;

}  // namespace zor

#endif
