// Owners of OpenSSL's objects, and its errors as text.
#ifndef PROGRAMS_TLS_TLS_H
#define PROGRAMS_TLS_TLS_H

#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

namespace zor::tls {

template <auto kFree>
struct Freer {
  template <class Object>
  void operator()(Object *object) const noexcept {
    kFree(object);
  }
};

using ContextPtr = std::unique_ptr<SSL_CTX, Freer<SSL_CTX_free>>;
using SslPtr = std::unique_ptr<SSL, Freer<SSL_free>>;
using BioPtr = std::unique_ptr<BIO, Freer<BIO_free_all>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;
using CertificatePtr = std::unique_ptr<X509, Freer<X509_free>>;
using NamesPtr = std::unique_ptr<GENERAL_NAMES, Freer<GENERAL_NAMES_free>>;

// What OpenSSL has reported since the last call, the first cause first; it is forgotten. Never empty.
std::string TakeErrors();

}  // namespace zor::tls

#endif
