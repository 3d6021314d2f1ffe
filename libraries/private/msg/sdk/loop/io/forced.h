// Forced events: callbacks that run in the next iteration as if their descriptor were ready.
#ifndef SDK_LOOP_IO_FORCED_H
#define SDK_LOOP_IO_FORCED_H

#include <zor/uv_io.h>

#include <cstdint>

namespace zor {

// Runs the forced events that are queued now; those that their callbacks queue wait for the next iteration. True when
// a callback was called.
bool RunForcedEvents(UvLoop &loop) noexcept;

// Removes the first forced event of this watcher that a real event has made redundant.
void DropForcedEvent(UvLoop &loop, const UvIO &watcher, std::uint32_t events) noexcept;

}  // namespace zor

#endif
