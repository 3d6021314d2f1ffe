// Application names: 12-byte fields that arrive from other processes and need not be terminated.
#ifndef BASE_TEXT_H
#define BASE_TEXT_H

#include <zor/msg_wire.h>

#include <string_view>

namespace zor {

using NameField = char[ZOR_MSG_NAME_SIZE];

// The text of a field, bounded to it.
std::string_view NameView(const NameField &field) noexcept;

// Stores a text: cut to 11 characters, terminated, the rest of the field zero. Null empties the field.
void SetName(NameField &field, const char *text) noexcept;

// The same from another field, which need not be terminated.
void CopyName(NameField &field, const NameField &from) noexcept;

}  // namespace zor

#endif
