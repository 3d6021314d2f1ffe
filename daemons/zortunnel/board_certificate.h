// The name of a board in its certificate: its only subject alternative name of type DNS. That is where certificate
// authorities put names, with an exact syntax; a common name is free text, and which of several would count is a matter
// of taste. So there is one name or none.
#ifndef ZORTUNNEL_BOARD_CERTIFICATE_H
#define ZORTUNNEL_BOARD_CERTIFICATE_H

#include <openssl/x509.h>

#include <string>

namespace zor::tunnel {

inline constexpr char kNameRule[] =
    "its certificate does not have exactly one subject alternative name of type DNS that is a name for a board";

// Empty if the certificate has no name, more than one, or one that no board may have.
std::string BoardNameIn(const X509 *certificate);

}  // namespace zor::tunnel

#endif
