#ifndef SDK_SOCKUTIL_SOCKBASE_H
#define SDK_SOCKUTIL_SOCKBASE_H

#include <zor/sockbase.h>

#include <cstdint>

namespace zor {

// ZOR_UTIL_SockBaseReg on a loop of the caller's choice.
std::uint32_t RegisterSockBase(UvLoop &loop, std::int32_t fd, SOCK_EVENT_PROC eventProc, std::uint32_t mode, void *data,
                               SockBase **outSockBase) noexcept;

}  // namespace zor

#endif
