#include "trace/message_track.h"

#include <zor/msg_head.h>
#include <zor/trace.h>
#include <zor/uv_loop.h>

#include <algorithm>
#include <cstring>

namespace zor {

MessageTrack::MessageTrack(const char *file, const ZOR_MSG_HEAD &msg, std::size_t blockLength) noexcept
    : file_(file), iteration_(static_cast<long long>(ZOR_UV_LoopGetCurIdx(nullptr))) {
  CopyName(appName_, g_stMsgCtx.appName);
  std::memcpy(&header_, &msg, std::min(blockLength, sizeof header_));
}

void MessageTrack::Print(const char *stage, std::uint32_t line) const noexcept {
  ZOR_TRACE_PrintInfo(file_, line, 0, "track", ZOR_TRACE_INFO,
                      "[%s msg %lld:0x%x] msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s]",
                      stage, iteration_, header_.type, header_.type, appName_, header_.data, header_.bodyLength,
                      header_.destination, header_.source);
}

}  // namespace zor
