// Reads for message watchers. Nothing here waits longer than a second for the next byte, and nothing waits for a first
// byte that is not there: a callback may run for bytes that an earlier callback of the same pass has already consumed.
#ifndef SDK_LOOP_MSG_READ_H
#define SDK_LOOP_MSG_READ_H

#include <cstddef>
#include <cstdint>

namespace zor {

// Reads exactly length bytes, waiting up to firstWaitMs for the first and up to a second for each later piece.
// ZOR_E_TIMEOUT: nothing within a wait, or a negative descriptor. ZOR_E_PEER_GONE: end of file. ZOR_E_IO: any other
// error.
std::uint32_t ReadExactly(int fd, void *buffer, std::size_t length, int firstWaitMs) noexcept;

// Reads what is there, at least one byte and at most length. The same statuses; a negative descriptor is
// ZOR_E_PEER_GONE.
std::uint32_t ReadChunk(int fd, void *buffer, std::size_t length) noexcept;

}  // namespace zor

#endif
