// What a program proves itself with, and what it believes of the other side: certificate, key, authority, revocations.
#ifndef PROGRAMS_TLS_CREDENTIALS_H
#define PROGRAMS_TLS_CREDENTIALS_H

#include <optional>
#include <string>

#include "programs/problem_log.h"
#include "programs/tls/tls.h"

namespace zor::tls {

// Real paths of files in PEM. They are named in the log as settings of these names.
struct CredentialFiles {
  std::optional<std::string> certificate;  // with those between it and the authority
  std::string key;                         // the certificate's
  std::string authority;
  std::optional<std::string> revoked;  // each certificate up to the authority must be vouched for by an up-to-date list
};

// False, with a line "SETTING = PATH: why", if any of them cannot be used.
bool LoadCredentials(SSL_CTX *context, const CredentialFiles &files, daemon::ProblemLog &log);

}  // namespace zor::tls

#endif
