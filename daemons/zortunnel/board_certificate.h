// The name of a board in its certificate, see programs/tls/certificate_name.h.
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
