// Requests from the fleet as messages of the bus, and their replies as what the fleet receives. Requests are hostile
// until the opposite is proven: every bound is checked here, and what is wrong is named.
#ifndef ZORBRIDGE_CALL_TEXT_H
#define ZORBRIDGE_CALL_TEXT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zor::bridge {

// Of a request's payload.
inline constexpr std::size_t kMostCallBytes = std::size_t{256} * 1024;

struct Call {
  uint32_t type = 0;
  uint32_t data = 0;
  std::string body;
};

// The message type of a request's topic: a number, or a name of the message table. None, with the reason, for others.
std::optional<uint32_t> ParseCallType(std::string_view text, std::string *problem);

// A request of that type and payload:
//   {} or nothing                    no body, data word 0
//   {"data":N}                       the data word alone
//   {"fields":{NAME:VALUE,...}}      the data word and the body by the message table; "data" may be given too
//   {"base64":"...","data":N}        the body as it is
// Values: numbers or texts of digits for numbers, texts without NUL for texts, hexadecimal digits for bytes, any value
// for JSON, and for items [{"name":TEXT,"value":TEXT},...] or {"sub_type":N,"items":[...]}.
// None, with the reason, for any other payload and for what the shape does not have room for.
std::optional<Call> ParseCall(uint32_t type, std::string_view payload, std::string *problem);

// JSON members without braces: "result":"done","data":N, and "fields" if the table has the reply's shape, else "text"
// if it is text, else "base64". Contents beyond fleet::kMostContentBytes are left out.
std::string TextOfReply(uint32_t type, uint32_t data, std::string_view body);

// The same for a request without a reply: one of fleet::result and the reason, which is cut if it is long.
std::string TextOfFailure(std::string_view result, std::string_view reason);

}  // namespace zor::bridge

#endif
