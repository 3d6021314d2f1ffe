// Certificates that a test or a measurement makes as it needs them.
#ifndef BENCH_CERTIFICATES_H
#define BENCH_CERTIFICATES_H

#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

namespace zor::bench {

// A certificate and its key, as PEM.
struct Issued {
  std::string certificate;
  std::string key;
  long serial;
};

class Authority {
 public:
  Authority();
  const std::string &certificate() const { return certificate_; }
  // names: as OpenSSL has it, such as "DNS:modem"; empty for none. Valid from a day before `days` of now to then.
  Issued Issue(const std::string &names, int days = 7) const;
  // A list of those that are revoked, up to date for so many days.
  std::string Revoke(const std::vector<long> &serials, int days = 7) const;

 private:
  std::shared_ptr<EVP_PKEY> key_;
  std::shared_ptr<X509> own_;
  std::string certificate_;
};

}  // namespace zor::bench

#endif
