#include "zorctl/mask.h"

#include <zor/blur.h>

#include <algorithm>
#include <string>
#include <string_view>

namespace zor::ctl {
namespace {

bool IsText(char c) {
  return static_cast<unsigned char>(c) >= ' ' && c != '\x7f';
}

bool IsOfAddress(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F') || c == ':' || c == '.' || c == '-';
}

void MaskText(std::span<char> text) {
  for (const auto mask : {ZOR_Blur_Mac, ZOR_Blur_Ip, ZOR_Blur_Uuid}) {
    const std::string_view masked = mask(std::string(text.begin(), text.end()).c_str());
    if (masked.size() == text.size()) {
      std::ranges::copy(masked, text.begin());
    } else {
      std::ranges::fill(text, '*');  // it was too long for the masks
    }
  }
}

}  // namespace

void MaskBody(std::span<char> body, bool cut) {
  for (auto from = body.begin(); (from = std::find_if(from, body.end(), IsText)) != body.end();) {
    const auto to = std::find_if_not(from, body.end(), IsText);
    MaskText({from, to});
    from = to;
  }
  for (auto last = body.rbegin(); cut && last != body.rend() && (IsOfAddress(*last) || *last == '*'); ++last)
    *last = '*';
}

}  // namespace zor::ctl
