// What the ways of receiving share.
#ifndef SDK_MSGAPI_TRANSFER_H
#define SDK_MSGAPI_TRANSFER_H

#include <cstdint>

namespace zor {

// Waits for input on one descriptor; false when timeoutMs passed without any. 0 stands for 20 seconds. A signal starts
// the whole wait again, and a descriptor that cannot be waited for counts as ready: the read will report it.
bool WaitForInput(int fd, std::uint32_t timeoutMs) noexcept;

}  // namespace zor

#endif
