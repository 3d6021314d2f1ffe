// The boot-track log: when each module's start-up began and ended.
#ifndef SDK_NOTIFYUTIL_BOOT_TRACK_H
#define SDK_NOTIFYUTIL_BOOT_TRACK_H

namespace zor {

// Appends one line: the monotonic time, the text, CR LF.
void TrackBoot(const char *text) noexcept;

}  // namespace zor

#endif
