#include "zorbridge/tls_context.h"

#include <openssl/pem.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>
#include <string_view>
#include <vector>

#include "programs/tls/credentials.h"

namespace zor::bridge {
namespace {

// Of what a certificate says and a line of the log repeats.
constexpr std::size_t kMostNames = 4;
constexpr std::size_t kMostNameLength = 64;

// In UTF-8, whatever the certificate has.
std::string TextOf(const ASN1_STRING *string) {
  unsigned char *bytes = nullptr;
  const int length = ASN1_STRING_to_UTF8(&bytes, string);
  std::string text;
  if (length > 0) text.assign(reinterpret_cast<const char *>(bytes), static_cast<std::size_t>(length));
  OPENSSL_free(bytes);
  return text;
}

std::string DateOf(const ASN1_TIME *time) {
  std::tm fields = {};
  char text[32] = "an unknown date";
  if (ASN1_TIME_to_tm(time, &fields) == 1) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &fields);
  return text;
}

std::string CommonName(const X509 *certificate) {
  const X509_NAME *subject = X509_get_subject_name(certificate);
  const int at = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
  return at < 0 ? std::string() : TextOf(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at)));
}

std::vector<std::string> DnsNames(const X509 *certificate) {
  const tls::NamesPtr names(
      static_cast<GENERAL_NAMES *>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
  std::vector<std::string> found;
  for (int i = 0; names != nullptr && i < sk_GENERAL_NAME_num(names.get()); ++i) {
    const GENERAL_NAME *name = sk_GENERAL_NAME_value(names.get(), i);
    if (name->type == GEN_DNS) found.push_back(TextOf(name->d.dNSName));
  }
  return found;
}

std::string NamesFor(const X509 *certificate) {
  std::vector<std::string> names = DnsNames(certificate);
  if (names.empty()) names.push_back(CommonName(certificate));
  std::string text;
  for (std::size_t i = 0; i < std::min(names.size(), kMostNames); ++i) {
    text += (text.empty() ? "" : ", ") + names[i].substr(0, kMostNameLength);
  }
  return text + (names.size() > kMostNames ? ", ..." : "");
}

}  // namespace

TlsContext::TlsContext(const Tls &files, const BrokerAddress &broker)
    : context_(SSL_CTX_new(TLS_client_method())),
      host_(broker.host),
      hostIsAddress_(broker.isLiteral()),
      authority_(files.authority) {}

std::unique_ptr<TlsContext> TlsContext::Make(const Tls &files, const BrokerAddress &broker, daemon::ProblemLog &log) {
  std::unique_ptr<TlsContext> made(new TlsContext(files, broker));
  if (made->context_ == nullptr || !made->SetUp()) {
    log.Print("TLS for %s: %s", broker.Text().c_str(), tls::TakeErrors().c_str());
    return nullptr;
  }
  tls::CredentialFiles wanted = {std::nullopt, files.key, files.authority, std::nullopt};
  if (!files.certificate.empty()) wanted.certificate = files.certificate;
  if (!files.revoked.empty()) wanted.revoked = files.revoked;
  return tls::LoadCredentials(made->context_.get(), wanted, log) ? std::move(made) : nullptr;
}

// Brokers of others may know no newer protocol than TLS 1.2. Its renegotiation is refused, and sessions are not
// resumed.
bool TlsContext::SetUp() {
  SSL_CTX *context = context_.get();
  SSL_CTX_set_app_data(context, this);
  SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
  SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_mode(context,
                   SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, OnVerified);
  SSL_CTX_set_info_callback(context, OnStep);
  X509_VERIFY_PARAM *parameters = SSL_CTX_get0_param(context);
  X509_VERIFY_PARAM_set_hostflags(parameters, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  return SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) == 1 &&
         (hostIsAddress_ ? X509_VERIFY_PARAM_set1_ip_asc(parameters, host_.c_str())
                         : X509_VERIFY_PARAM_set1_host(parameters, host_.c_str(), 0)) == 1;
}

// Called by OpenSSL, through which no exception may pass.
int TlsContext::OnVerified(int verified, X509_STORE_CTX *store) {
  if (verified == 1) return 1;
  const auto *ssl = static_cast<const SSL *>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
  auto *context = static_cast<TlsContext *>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
  try {
    context->problem_ = context->ProblemOf(store);
  } catch (const std::bad_alloc &) {
    // The handshake fails all the same, with OpenSSL's own words.
  }
  return 0;
}

// An address has no place in the handshake's server name.
void TlsContext::OnStep(const SSL *ssl, int where, int) {
  if ((where & SSL_CB_HANDSHAKE_START) == 0) return;
  const auto *context = static_cast<const TlsContext *>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
  const char *name = context->hostIsAddress_ ? nullptr : context->host_.c_str();
  SSL_set_tlsext_host_name(const_cast<SSL *>(ssl), name);
}

std::string TlsContext::ProblemOf(X509_STORE_CTX *store) const {
  const int error = X509_STORE_CTX_get_error(store);
  const X509 *certificate = X509_STORE_CTX_get_current_cert(store);
  const std::string whose =
      X509_STORE_CTX_get_error_depth(store) == 0 ? "the broker's certificate" : "an authority's certificate";
  switch (error) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return whose + " has expired on " + DateOf(X509_get0_notAfter(certificate)) +
             "; check the clock of this gateway too";
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return whose + " is valid only from " + DateOf(X509_get0_notBefore(certificate)) +
             "; check the clock of this gateway too";
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return whose + " is for " + NamesFor(certificate) + ", not for " + host_;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
      return "the broker's certificate is not signed by an authority of " + authority_;
    case X509_V_ERR_CERT_REVOKED:
      return whose + " has been revoked";
    default:
      return whose + " is refused: " + X509_verify_cert_error_string(error);
  }
}

std::string NameFromCertificate(const std::string &path, std::string *problem) {
  const tls::BioPtr file(BIO_new_file(path.c_str(), "re"));
  const tls::CertificatePtr certificate(file == nullptr ? nullptr
                                                        : PEM_read_bio_X509_AUX(file.get(), nullptr, nullptr, nullptr));
  if (certificate == nullptr) {
    *problem = path + ": " + tls::TakeErrors();
    return {};
  }
  const std::vector<std::string> names = DnsNames(certificate.get());
  std::string name = names.empty() ? CommonName(certificate.get()) : names.front();
  if (name.empty()) *problem = path + ": the certificate has no alternative name of type DNS and no common name";
  return name;
}

}  // namespace zor::bridge
