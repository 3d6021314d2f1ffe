#include "zortunnel/tls.h"

#include <openssl/err.h>

#include <cerrno>
#include <cstring>

#include "zortunnel/board_certificate.h"

namespace zor::tunnel {
namespace {

std::string TextOf(unsigned long code, const char *data, int flags) {
  std::string text;
  // The other side has sent an alert; its number follows the offset.
  if (ERR_GET_LIB(code) == ERR_LIB_SSL && ERR_GET_REASON(code) > SSL_AD_REASON_OFFSET) {
    text = "refused by the other side: ";
  }
  const char *reason = ERR_reason_error_string(code);
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

std::string FailureOf(const SSL *ssl, int error) {
  const int systemError = errno;
  const long verified = SSL_get_verify_result(ssl);
  if (error == SSL_ERROR_SYSCALL && ERR_peek_error() == 0) {
    return systemError == 0 ? "the other side has closed the connection" : std::strerror(systemError);
  }
  if (error == SSL_ERROR_SSL && ERR_GET_REASON(ERR_peek_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
    TakeErrors();
    return "the other side has closed the connection";
  }
  std::string text = TakeErrors();
  if (verified == X509_V_ERR_APPLICATION_VERIFICATION) {
    text = kNameRule;
  } else if (verified != X509_V_OK) {
    text += std::string(": ") + X509_verify_cert_error_string(verified);
  }
  return text;
}

}  // namespace zor::tunnel
