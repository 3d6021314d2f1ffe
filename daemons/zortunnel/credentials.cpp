#include "zortunnel/credentials.h"

#include "programs/paths.h"
#include "programs/tls/credentials.h"
#include "zortunnel/board_certificate.h"

namespace zor::tunnel {
namespace {

// At the gateway a certificate counts only with a name for its board; the board is told in the handshake.
int CheckName(int verified, X509_STORE_CTX *store) {
  if (verified == 0 || X509_STORE_CTX_get_error_depth(store) != 0) return verified;
  if (!BoardNameIn(X509_STORE_CTX_get_current_cert(store)).empty()) return 1;
  X509_STORE_CTX_set_error(store, X509_V_ERR_APPLICATION_VERIFICATION);
  return 0;
}

// Sessions are not resumed: every connection shows its certificate.
bool SetProtocol(SSL_CTX *context, bool isGateway) {
  SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_NO_TICKET);
  SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_mode(context,
                   SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, isGateway ? CheckName : nullptr);
  return SSL_CTX_set_min_proto_version(context, TLS1_3_VERSION) == 1 && SSL_CTX_set_num_tickets(context, 0) == 1;
}

// The name in the alternative names alone, as it is: no pattern in a certificate counts.
bool SetGatewayName(SSL_CTX *context, const std::string &name) {
  X509_VERIFY_PARAM *parameters = SSL_CTX_get0_param(context);
  X509_VERIFY_PARAM_set_hostflags(parameters, X509_CHECK_FLAG_NO_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
  return X509_VERIFY_PARAM_set1_host(parameters, name.c_str(), 0) == 1;
}

}  // namespace

tls::ContextPtr LoadCredentials(const TunnelSettings &settings, daemon::ProblemLog &log) {
  tls::ContextPtr context(SSL_CTX_new(TLS_method()));
  if (context == nullptr || !SetProtocol(context.get(), settings.isGateway)) {
    log.Print("TLS = 1.3: %s", tls::TakeErrors().c_str());
    return nullptr;
  }
  if (!settings.isGateway && !SetGatewayName(context.get(), settings.gatewayName)) {
    log.Print("gateway_name = %s: %s", settings.gatewayName.c_str(), tls::TakeErrors().c_str());
    return nullptr;
  }
  tls::CredentialFiles files = {daemon::FixedPath(settings.certificate), daemon::FixedPath(settings.key),
                                daemon::FixedPath(settings.authority), std::nullopt};
  if (!settings.revoked.empty()) files.revoked = daemon::FixedPath(settings.revoked);
  return tls::LoadCredentials(context.get(), files, log) ? std::move(context) : nullptr;
}

}  // namespace zor::tunnel
