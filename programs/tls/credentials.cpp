#include "programs/tls/credentials.h"

#include <openssl/pem.h>

#include "programs/tls/secret_file.h"

namespace zor::tls {
namespace {

// A key with a passphrase is refused: there is nobody to ask.
int NoPassphrase(char *, int, int, void *) {
  return -1;
}

class Loader {
 public:
  Loader(SSL_CTX *context, daemon::ProblemLog &log) : context_(context), log_(log) {}

  bool LoadCertificate(const std::string &path) {
    if (SSL_CTX_use_certificate_chain_file(context_, path.c_str()) != 1) return Fail("certificate", path);
    if (X509_cmp_current_time(X509_get0_notAfter(SSL_CTX_get0_certificate(context_))) < 0) {
      log_.Print("certificate = %s: it has expired, and the other side will refuse it", path.c_str());
    }
    return true;
  }

  bool LoadKey(const std::string &path) {
    SecretFile content;
    if (!content.Read("key", path, log_)) return false;
    const BioPtr text(BIO_new_mem_buf(content.text().data(), static_cast<int>(content.text().size())));
    const KeyPtr key(text == nullptr ? nullptr : PEM_read_bio_PrivateKey(text.get(), nullptr, NoPassphrase, nullptr));
    if (key == nullptr || SSL_CTX_use_PrivateKey(context_, key.get()) != 1) return Fail("key", path);
    return SSL_CTX_check_private_key(context_) == 1 || Fail("key", path);
  }

  bool LoadAuthority(const std::string &path) {
    return SSL_CTX_load_verify_file(context_, path.c_str()) == 1 || Fail("authority", path);
  }

  bool LoadRevoked(const std::string &path) {
    X509_STORE *store = SSL_CTX_get_cert_store(context_);
    X509_LOOKUP *lookup = X509_STORE_add_lookup(store, X509_LOOKUP_file());
    if (lookup == nullptr || X509_load_crl_file(lookup, path.c_str(), X509_FILETYPE_PEM) <= 0) {
      return Fail("revoked", path);
    }
    return X509_STORE_set_flags(store, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL) == 1 || Fail("revoked", path);
  }

 private:
  bool Fail(const char *setting, const std::string &path) {
    log_.Print("%s = %s: %s", setting, path.c_str(), TakeErrors().c_str());
    return false;
  }

  SSL_CTX *context_;
  daemon::ProblemLog &log_;
};

}  // namespace

bool LoadCredentials(SSL_CTX *context, const CredentialFiles &files, daemon::ProblemLog &log) {
  Loader loader(context, log);
  return (!files.certificate || (loader.LoadCertificate(*files.certificate) && loader.LoadKey(files.key))) &&
         loader.LoadAuthority(files.authority) && (!files.revoked || loader.LoadRevoked(*files.revoked));
}

}  // namespace zor::tls
