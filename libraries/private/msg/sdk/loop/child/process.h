// What the parts of a spawn share. A child is forked first and set up in the fork; it waits at a gate until the parent
// has recorded its process id, so that its end is never reaped by a handler that does not know it yet.
//
// When a child ends: process_reap.cpp. Between fork and exec: process_child.cpp. Its pipes: process_stdio.cpp.
#ifndef SDK_LOOP_CHILD_PROCESS_H
#define SDK_LOOP_CHILD_PROCESS_H

#include <zor/uv_process.h>

#include <array>
#include <cstdint>

#include "common/unique_fd.h"
#include "sdk/loop/child/process_gate.h"

// Receives the status of a child that no process watcher claims.
struct UvWaitRecord {
  std::int32_t pid;
  std::int32_t status;
};

// Reaps every child that has ended. Async-signal-safe. The record may be null.
extern "C" void uvProcessWaitpid(UvWaitRecord *record);

namespace zor {

// The child's ends of the redirected standard streams; none of them is a standard stream itself.
using ChildStreams = std::array<UniqueFd, 3>;

// Makes the pipes that the options ask for, with watchers of the process's loop at our ends. On failure the watchers
// made so far stay for DeleteStreams.
bool MakeStreams(UvProcess &process, const UvProcessOptions &options, ChildStreams &childEnds) noexcept;
void DeleteStreams(UvProcess &process) noexcept;

// What the fork does: it becomes the program, or ends with 127.
[[noreturn]] void RunChild(const UvProcessOptions &options, const UvLoop &loop, StartGate &gate,
                           const ChildStreams &streams) noexcept;

// Makes the loop finish its children; false when it cannot.
bool EnsureChildrenAreFinished(UvLoop &loop) noexcept;

}  // namespace zor

#endif
