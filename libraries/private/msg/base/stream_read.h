// Reads from a stream. Bytes that are there already are taken without asking first, which would be a wasted system
// call; only then does a read wait, and its caller says how long.
#ifndef BASE_STREAM_READ_H
#define BASE_STREAM_READ_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace zor {

// Milliseconds that a read may wait for its first byte, and for each later piece; below 0 without limit.
struct ReadWaits {
  int firstMs;
  int laterMs;
};

// The status of a read that returned count, which is not above 0: ZOR_E_PEER_GONE at the end of file and for the one
// errno that means a lost peer, else ZOR_E_IO. ECONNRESET is an ordinary error: it means that bytes were lost.
std::uint32_t StatusOfFailedRead(ssize_t count) noexcept;

// Reads exactly length bytes and reduces length by what was read, also on failure. ZOR_E_TIMEOUT: nothing within a
// wait, or a negative descriptor; else as above. It ends with ZOR_E_IO and `descriptor` after bytes beside which a
// descriptor came: the kernel has closed that, and ends a read after such bytes.
std::uint32_t ReadExactly(int fd, void *buffer, std::size_t &length, ReadWaits waits, bool &descriptor) noexcept;

// One read of at most length bytes that waits without a limit and is repeated when it is interrupted or finds no data:
// the result of read(2). `descriptor`: whether one came beside the bytes, as above.
ssize_t ReadOnce(int fd, void *buffer, std::size_t length, bool &descriptor) noexcept;

// Reads what is there, at least one byte and at most length. The statuses of ReadExactly, but ZOR_E_PEER_GONE for a
// negative descriptor.
std::uint32_t ReadChunk(int fd, void *buffer, std::size_t length) noexcept;

}  // namespace zor

#endif
