// What one connection to a broker needs of TLS: who we are, whom we believe, and for whom the broker must be vouched.
//
// The library below connects to an address and takes that for the broker's name. So the check of the name and the name
// in the handshake are made here, with a context that it gets ready-made.
#ifndef ZORBRIDGE_TLS_CONTEXT_H
#define ZORBRIDGE_TLS_CONTEXT_H

#include <memory>
#include <string>

#include "programs/problem_log.h"
#include "programs/tls/tls.h"
#include "zorbridge/broker_address.h"
#include "zorbridge/tls_files.h"

namespace zor::bridge {

// Must outlive its connection.
class TlsContext {
 public:
  // Null, with a line in the log, if something cannot be used.
  static std::unique_ptr<TlsContext> Make(const Tls &files, const BrokerAddress &broker, daemon::ProblemLog &log);

  TlsContext(const TlsContext &) = delete;
  TlsContext &operator=(const TlsContext &) = delete;

  SSL_CTX *get() const { return context_.get(); }
  // What is wrong with the broker's certificate; empty: nothing, as far as is known.
  const std::string &problem() const { return problem_; }

 private:
  TlsContext(const Tls &files, const BrokerAddress &broker);
  bool SetUp();
  static int OnVerified(int verified, X509_STORE_CTX *store);
  static void OnStep(const SSL *ssl, int where, int result);
  std::string ProblemOf(X509_STORE_CTX *store) const;

  tls::ContextPtr context_;
  std::string host_;
  bool hostIsAddress_;
  std::string authority_;
  std::string problem_;
};

// The name of the gateway in its certificate: the first alternative name of type DNS, else the common name. Empty, with
// the problem, if the file or the name is missing.
std::string NameFromCertificate(const std::string &path, std::string *problem);

}  // namespace zor::bridge

#endif
