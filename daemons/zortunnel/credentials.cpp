#include "zortunnel/credentials.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <span>

#include "common/unique_fd.h"
#include "programs/paths.h"
#include "zortunnel/board_certificate.h"

namespace zor::tunnel {
namespace {

// The group may read it, so that a key that belongs to root serves a program that does not run as root.
constexpr mode_t kForbidden = S_IWGRP | S_IRWXO;

// The content of a key's file, which leaves no trace in memory.
class KeyText {
 public:
  KeyText() = default;
  KeyText(const KeyText &) = delete;
  KeyText &operator=(const KeyText &) = delete;
  ~KeyText() { OPENSSL_cleanse(text_.data(), text_.size()); }

  bool Read(int file) {
    while (length_ < text_.size()) {
      const ssize_t count = ::read(file, &text_[length_], text_.size() - length_);
      if (count == 0) return true;
      if (count < 0 && errno != EINTR) return false;
      if (count > 0) length_ += static_cast<std::size_t>(count);
    }
    errno = EFBIG;
    return false;
  }
  std::span<const char> text() const { return std::span(text_).first(length_); }

 private:
  std::array<char, 32768> text_{};
  std::size_t length_ = 0;
};

// A key with a passphrase is refused: there is nobody to ask.
int NoPassphrase(char *, int, int, void *) {
  return -1;
}

// At the gateway a certificate counts only with a name for its board; the board is told in the handshake.
int CheckName(int verified, X509_STORE_CTX *store) {
  if (verified == 0 || X509_STORE_CTX_get_error_depth(store) != 0) return verified;
  if (!BoardNameIn(X509_STORE_CTX_get_current_cert(store)).empty()) return 1;
  X509_STORE_CTX_set_error(store, X509_V_ERR_APPLICATION_VERIFICATION);
  return 0;
}

class Loader {
 public:
  Loader(const TunnelSettings &settings, daemon::ProblemLog &log)
      : settings_(settings), log_(log), context_(SSL_CTX_new(TLS_method())) {}

  tls::ContextPtr Load() {
    const bool loaded =
        context_ != nullptr ? SetProtocol() && LoadOwn() && LoadAuthority() && LoadRevoked() : Fail("TLS", "");
    return loaded ? std::move(context_) : nullptr;
  }

 private:
  bool Fail(const char *setting, const std::string &path) {
    log_.Print("%s = %s: %s", setting, path.c_str(), tls::TakeErrors().c_str());
    return false;
  }

  // Sessions are not resumed: every connection shows its certificate.
  bool SetProtocol() {
    SSL_CTX *context = context_.get();
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_NO_TICKET);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_mode(context,
                     SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT,
                       settings_.isGateway ? CheckName : nullptr);
    if (SSL_CTX_set_min_proto_version(context, TLS1_3_VERSION) == 1 && SSL_CTX_set_num_tickets(context, 0) == 1) {
      return settings_.isGateway || SetGatewayName();
    }
    return Fail("TLS", "1.3");
  }

  // The name in the alternative names alone, as it is: no pattern in a certificate counts.
  bool SetGatewayName() {
    X509_VERIFY_PARAM *parameters = SSL_CTX_get0_param(context_.get());
    X509_VERIFY_PARAM_set_hostflags(parameters, X509_CHECK_FLAG_NO_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
    return X509_VERIFY_PARAM_set1_host(parameters, settings_.gatewayName.c_str(), 0) == 1 ||
           Fail("gateway_name", settings_.gatewayName);
  }

  bool LoadOwn() {
    const std::string path = daemon::FixedPath(settings_.certificate);
    if (SSL_CTX_use_certificate_chain_file(context_.get(), path.c_str()) != 1) return Fail("certificate", path);
    if (!LoadKey()) return false;
    if (X509_cmp_current_time(X509_get0_notAfter(SSL_CTX_get0_certificate(context_.get()))) < 0) {
      log_.Print("certificate = %s: it has expired, and the other side will refuse it", path.c_str());
    }
    return true;
  }

  bool LoadKey() {
    const std::string path = daemon::FixedPath(settings_.key);
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status = {};
    KeyText content;
    if (!file.valid() || ::fstat(file.get(), &status) != 0 || !content.Read(file.get())) {
      log_.PrintErrno("key = %s", path.c_str());
      return false;
    }
    if ((status.st_mode & kForbidden) != 0 || (status.st_uid != 0 && status.st_uid != ::geteuid())) {
      log_.Print(
          "key = %s: others may read or replace it; it must belong to root or to this program's user, "
          "with mode 0640 or less",
          path.c_str());
      return false;
    }
    const tls::BioPtr text(BIO_new_mem_buf(content.text().data(), static_cast<int>(content.text().size())));
    const tls::KeyPtr key(text == nullptr ? nullptr
                                          : PEM_read_bio_PrivateKey(text.get(), nullptr, NoPassphrase, nullptr));
    if (key == nullptr || SSL_CTX_use_PrivateKey(context_.get(), key.get()) != 1) return Fail("key", path);
    return SSL_CTX_check_private_key(context_.get()) == 1 || Fail("key", path);
  }

  bool LoadAuthority() {
    const std::string path = daemon::FixedPath(settings_.authority);
    return SSL_CTX_load_verify_file(context_.get(), path.c_str()) == 1 || Fail("authority", path);
  }

  // Each certificate up to the authority must be vouched for by a list that is up to date.
  bool LoadRevoked() {
    if (settings_.revoked.empty()) return true;
    const std::string path = daemon::FixedPath(settings_.revoked);
    X509_STORE *store = SSL_CTX_get_cert_store(context_.get());
    X509_LOOKUP *lookup = X509_STORE_add_lookup(store, X509_LOOKUP_file());
    if (lookup == nullptr || X509_load_crl_file(lookup, path.c_str(), X509_FILETYPE_PEM) <= 0) {
      return Fail("revoked", path);
    }
    return X509_STORE_set_flags(store, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL) == 1 || Fail("revoked", path);
  }

  const TunnelSettings &settings_;
  daemon::ProblemLog &log_;
  tls::ContextPtr context_;
};

}  // namespace

tls::ContextPtr LoadCredentials(const TunnelSettings &settings, daemon::ProblemLog &log) {
  return Loader(settings, log).Load();
}

}  // namespace zor::tunnel
