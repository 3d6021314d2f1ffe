#include "zorctl/fleet_tls.h"

#include <arpa/inet.h>

#include <array>
#include <optional>

#include "programs/problem_log.h"
#include "programs/tls/credentials.h"
#include "zorctl/exit_code.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

// Where Debian has the authorities that the system trusts.
constexpr char kSystemAuthorities[] = "/etc/ssl/certs/ca-certificates.crt";

// The first reason counts: later ones follow from it.
int NoteRefusal(int accepted, X509_STORE_CTX *store) noexcept {
  const auto *ssl = static_cast<const SSL *>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
  auto *refusal = static_cast<std::string *>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
  if (accepted == 0 && refusal->empty()) *refusal = X509_verify_cert_error_string(X509_STORE_CTX_get_error(store));
  return accepted;
}

bool IsAddress(const std::string &host) {
  std::array<unsigned char, sizeof(in6_addr)> bytes{};
  return ::inet_pton(AF_INET, host.c_str(), bytes.data()) == 1 ||
         ::inet_pton(AF_INET6, host.c_str(), bytes.data()) == 1;
}

bool SetBroker(SSL_CTX *context, const std::string &host) {
  X509_VERIFY_PARAM *parameters = SSL_CTX_get0_param(context);
  return IsAddress(host) ? X509_VERIFY_PARAM_set1_ip_asc(parameters, host.c_str()) == 1
                         : X509_VERIFY_PARAM_set1_host(parameters, host.c_str(), 0) == 1;
}

}  // namespace

tls::ContextPtr MakeTlsContext(const FleetAccess &access, std::string *refusal) {
  tls::ContextPtr owner(SSL_CTX_new(TLS_client_method()));
  SSL_CTX *context = owner.get();
  if (context == nullptr || SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1 ||
      !SetBroker(context, access.host)) {
    throw Failure(kExitFailure, "no TLS for " + Escape(access.host) + ": " + tls::TakeErrors(), "check the URL");
  }
  tls::CredentialFiles files;
  files.authority = access.authority.empty() ? kSystemAuthorities : access.authority;
  if (!access.certificate.empty()) files.certificate = access.certificate;
  files.key = access.key;
  daemon::ProblemLog log("zorctl");
  if (!tls::LoadCredentials(context, files, log)) {
    throw Failure(kExitUsage, "the files for TLS cannot be used", "check --ca, --cert and --key");
  }
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, NoteRefusal);
  SSL_CTX_set_app_data(context, refusal);
  return owner;
}

}  // namespace zor::ctl
