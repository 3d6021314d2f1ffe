// A port as the resolver takes it: a service in decimal.
#ifndef SDK_SOCKUTIL_PORT_TEXT_H
#define SDK_SOCKUTIL_PORT_TEXT_H

#include <charconv>
#include <cstdint>

namespace zor {

class PortText {
 public:
  explicit PortText(std::uint16_t port) noexcept { std::to_chars(text_, text_ + sizeof text_ - 1, port); }
  const char *c_str() const noexcept { return text_; }

 private:
  char text_[6] = {};
};

}  // namespace zor

#endif
