#include "zorweb/form.h"

#include <algorithm>
#include <charconv>

namespace zor::web {
namespace {

std::string Decoded(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    size_t taken = 1;
    if (text.front() == '%') {
      unsigned char byte = 0;
      const auto [end, error] =
          std::from_chars(text.data() + 1, text.data() + std::min<size_t>(3, text.size()), byte, 16);
      if (error != std::errc() || end != text.data() + 3) return {};
      out += static_cast<char>(byte);
      taken = 3;
    } else {
      out += text.front() == '+' ? ' ' : text.front();
    }
    text.remove_prefix(taken);
  }
  return out;
}

}  // namespace

std::string FormField(std::string_view form, std::string_view name) {
  while (!form.empty()) {
    const std::string_view pair = form.substr(0, form.find('&'));
    const size_t equals = pair.find('=');
    if (equals != pair.npos && pair.substr(0, equals) == name) return Decoded(pair.substr(equals + 1));
    form.remove_prefix(std::min(pair.size() + 1, form.size()));
  }
  return {};
}

}  // namespace zor::web
