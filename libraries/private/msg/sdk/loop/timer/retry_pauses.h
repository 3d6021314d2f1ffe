// The pauses between attempts to restore a connection: each twice as long as the one before up to a limit, and
// shortened by a random part, because the daemons of a system lose a server together and must not come back together.
// They begin with the first again only after a connection that has outlasted the latest pause, so that a server that
// accepts and closes at once is not called ever faster.
#ifndef SDK_LOOP_TIMER_RETRY_PAUSES_H
#define SDK_LOOP_TIMER_RETRY_PAUSES_H

#include <zor/msg_rejoin.h>
#include <zor/uv_loop.h>

#include <cstdint>
#include <optional>

namespace zor {

// What the caller wants, with defaults for 0 and for null; nothing if the longest pause is below the first.
std::optional<ZOR_MSG_REJOIN> ChooseRejoinTimes(const ZOR_MSG_REJOIN *wanted) noexcept;

struct RetryPauses {
  ZOR_MSG_REJOIN times;
  std::uint32_t latestMs;  // before a part of it was taken off; 0: none since the connection was good
  UvTime since;            // when the connection was made

  void OnConnected() noexcept;
  void OnLost() noexcept;
  std::uint32_t NextMs() noexcept;
};

}  // namespace zor

#endif
