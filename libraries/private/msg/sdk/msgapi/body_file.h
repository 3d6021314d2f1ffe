// Bodies that are too long for the socket travel in a file: the message then carries the file's path as its body. The
// sender makes the file, the receiver reads and deletes it.
#ifndef SDK_MSGAPI_BODY_FILE_H
#define SDK_MSGAPI_BODY_FILE_H

#include <zor/msg_wire.h>

#include <cstdint>

#include "message/context.h"

namespace zor {

// Writes a body of header.bodyLength bytes to a new file and makes the block that is sent in place of the message.
// ZOR_E_BODY_FILE when the file could not be written; ZOR_E_NOT_WRITABLE, with the file left in place, when there is no
// memory for the block.
std::uint32_t MoveBodyToFile(const ZOR_MSG_HEAD &header, const void *body, MessagePtr &block) noexcept;

// Deletes the file of a block that could not be sent.
void RemoveBodyFile(const ZOR_MSG_HEAD &block) noexcept;

// Replaces the path in an arrived message by the content of the file, which is deleted. The path comes from another
// process: it must name a regular file directly in the directory of message files. On failure msg is freed and null;
// ZOR_E_IO, or ZOR_E_NO_MEMORY for a file beyond the allocation limit (which is deleted all the same).
std::uint32_t RestoreFileBody(MessagePtr &msg) noexcept;

}  // namespace zor

#endif
