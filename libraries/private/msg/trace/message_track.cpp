#include "trace/message_track.h"

#include <zor/msg_head.h>
#include <zor/trace.h>

#include <algorithm>
#include <cstring>

#include "trace/trace_line.h"

namespace zor {

MessageTrack::MessageTrack(const ZOR_MSG_HEAD &msg, std::uint64_t iteration, std::size_t blockLength,
                           const char *file) noexcept
    : file_(file), iteration_(static_cast<long long>(iteration)) {
  CopyName(appName_, g_stMsgCtx.appName);
  std::memcpy(&header_, &msg, std::min(blockLength, sizeof header_));
}

void MessageTrack::Print(const char *stage, std::uint32_t line) const noexcept {
  Trace({"track", file_, line}, ZOR_TRACE_INFO,
        "[%s msg %lld:0x%x] msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s]", stage, iteration_,
        header_.type, header_.type, appName_, header_.data, header_.bodyLength, header_.destination, header_.source);
}

}  // namespace zor
