#include <unistd.h>
#include <zor/msg_dispatch.h>

#include <cstdio>

#include "common/unique_fd.h"
#include "message/context.h"

void ZOR_MSG_TraceProc(int fd) {
  // Closing the stream closes its descriptor. A descriptor number without a stream is not ours: after ZOR_MSG_Destroy
  // the field is 0, which is the daemon's standard input.
  if (g_stMsgCtx.traceStream != nullptr) std::fclose(g_stMsgCtx.traceStream);
  g_stMsgCtx.traceStream = nullptr;
  g_stMsgCtx.traceFd = -1;

  zor::UniqueFd given(fd);
  if (g_stMsgCtx.traceFdEnabled == 0 || !given.valid()) return;
  g_stMsgCtx.traceStream = ::fdopen(given.get(), "w");
  if (g_stMsgCtx.traceStream != nullptr) g_stMsgCtx.traceFd = given.release();
}
