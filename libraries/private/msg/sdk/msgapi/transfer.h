// Shared by the functions that send and receive.
#ifndef SDK_MSGAPI_TRANSFER_H
#define SDK_MSGAPI_TRANSFER_H

#include <zor/msg_wire.h>

#include <cstdint>

namespace zor {

// ZOR_MSG_Send for a body that does not follow its header. Where no hook needs to see the whole message, a long
// body goes straight to its file; else both are copied into one block. The header is left as it is.
std::uint32_t SendParts(const ZOR_MSG_HEAD &header, const void *body) noexcept;

// Waits for input on one descriptor; false when timeoutMs passed without any. 0 stands for 20 seconds. A signal starts
// the whole wait again, and a descriptor that cannot be waited for counts as ready: the read will report it.
bool WaitForInput(int fd, std::uint32_t timeoutMs) noexcept;

}  // namespace zor

#endif
