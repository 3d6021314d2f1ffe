#include "programs/tls/tls.h"

#include <openssl/err.h>

#include <cstdint>
#include <cstring>

namespace zor::tls {
namespace {

std::string TextOf(unsigned long code, const char *data, int flags) {
  std::string text;
  // The other side has sent an alert; its number, a byte, follows the offset. Reasons that all of OpenSSL shares are
  // larger.
  const int alert = ERR_GET_LIB(code) == ERR_LIB_SSL ? ERR_GET_REASON(code) - SSL_AD_REASON_OFFSET : 0;
  if (alert > 0 && alert <= UINT8_MAX) {
    text = "refused by the other side: ";
  }
  const char *reason = ERR_SYSTEM_ERROR(code) ? std::strerror(ERR_GET_REASON(code)) : ERR_reason_error_string(code);
  text += reason == nullptr ? "error " + std::to_string(code) : reason;
  if ((flags & ERR_TXT_STRING) != 0 && data != nullptr && *data != '\0') text += std::string(" (") + data + ')';
  return text;
}

}  // namespace

std::string TakeErrors() {
  std::string text;
  const char *data = nullptr;
  int flags = 0;
  while (const unsigned long code = ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags)) {
    text += (text.empty() ? "" : "; ") + TextOf(code, data, flags);
  }
  return text.empty() ? "unknown error" : text;
}

}  // namespace zor::tls
