#include "sdk/notifyutil/boot_track.h"

#include <zor/paths.h>
#include <zor/systime.h>

#include <cstdio>

#include "base/file_ptr.h"
#include "base/fixed_path.h"

namespace zor {
namespace {

// Opened and closed for every piece, so that earlier lines survive a daemon that crashes in its next callback.
void AppendPiece(const char *text) {
  const FixedPath path(ZOR_PATH_BOOT_TRACK);
  const FilePtr stream(std::fopen(path.c_str(), "a+e"));
  if (stream != nullptr) std::fputs(text, stream.get());
}

}  // namespace

void TrackBoot(const char *text) noexcept {
  ZOR_SYS_TIME now = {};
  ZOR_UTIL_GetSysTime(&now);
  char time[64];
  std::snprintf(time, sizeof time, "[tv_sec:%03ld tv_usec:%06ld] ", static_cast<long>(now.seconds),
                static_cast<long>(now.microseconds));
  AppendPiece(time);
  AppendPiece(text);
  AppendPiece("\r\n");
}

}  // namespace zor
