// The name of a device in its certificate: its only subject alternative name of type DNS. That is where certificate
// authorities put names, with an exact syntax; a common name is free text, and which of several would count is a matter
// of taste. So there is one name or none.
#ifndef PROGRAMS_TLS_CERTIFICATE_NAME_H
#define PROGRAMS_TLS_CERTIFICATE_NAME_H

#include <openssl/x509.h>

#include <string>

namespace zor::tls {

// Empty if the certificate has no name or more than one.
std::string NameIn(const X509 *certificate);
// The same of the first certificate in a PEM file, by its real path; empty also if there is none.
std::string NameInFile(const std::string &path);

}  // namespace zor::tls

#endif
