// Names of streams: 12 random digits, and 4 that count.
#ifndef ZORBRIDGE_STREAM_NAME_H
#define ZORBRIDGE_STREAM_NAME_H

#include <string>
#include <string_view>

namespace zor::bridge {

std::string NewStreamName();
// The next one of the same file, which is greater as a text; a new one after 65536.
std::string StreamNameAfter(std::string_view name);

}  // namespace zor::bridge

#endif
