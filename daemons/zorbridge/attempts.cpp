// Attempts to connect: which broker, which of its addresses, with what credentials, and what is said of failures.
#include <fcntl.h>

#include "programs/tls/secret_file.h"
#include "zorbridge/line.h"

namespace zor::bridge {

bool BrokerLink::Line::ReadPassword(std::string *password) const {
  if (options_.passwordFile.empty()) return true;
  tls::SecretFile file;
  if (!file.Read("password_file", options_.passwordFile, log_)) return false;
  *password = file.text();
  if (password->ends_with('\n')) password->pop_back();
  return true;
}

bool BrokerLink::Line::CheckFiles() const {
  std::string password;
  if (!ReadPassword(&password)) return false;
  for (const BrokerAddress &each : options_.brokers) {
    if (each.tls && TlsContext::Make(options_.tls, each, log_) == nullptr) return false;
  }
  return true;
}

bool BrokerLink::Line::Start() {
  if (options_.brokers.empty()) {
    log_.Print("no broker is set");
    return false;
  }
  if (!CheckFiles()) return false;
  if (!timer_.Open(OnTimer, this)) {
    log_.Print("out of memory");
    return false;
  }
  PauseThen(0, false);
  return true;
}

// A broker that refuses us does not keep us from the next one; only the last one's word makes us stay away longer.
void BrokerLink::Line::PauseThen(std::size_t broker, bool refused) {
  at_ = broker % options_.brokers.size();
  if (refused && at_ == 0) retry_.Refused();
  state_ = State::kPause;
  timer_.Set(Clock::now() + retry_.Next());
}

void BrokerLink::Line::Attempt() {
  figures_.broker = broker().Text();
  addresses_.clear();
  if (broker().isLiteral()) {
    addresses_ = {broker().host};
    TryAddresses("");
    return;
  }
  state_ = State::kLookUp;
  timer_.Set(Clock::now() + options_.connectTime);
  if (!resolver_.Start(broker().host)) FailAttempt("its name cannot be looked up: no process for that", false);
}

void BrokerLink::Line::OnLookedUp(void *self, std::vector<std::string> addresses, const std::string &problem) {
  auto &line = *static_cast<Line *>(self);
  line.addresses_ = std::move(addresses);
  line.TryAddresses(problem);
}

// Goes on with the next address. When there is none the attempt has failed for the problem of the last one.
void BrokerLink::Line::TryAddresses(std::string problem) {
  while (!addresses_.empty()) {
    const std::string address = addresses_.front();
    addresses_.erase(addresses_.begin());
    problem = Connect(address);
    if (problem.empty()) return;
    Close();
  }
  FailAttempt(problem, false);
}

// The problem, if that fails at once.
std::string BrokerLink::Line::Connect(const std::string &address) {
  Session::Options options;
  if (!ReadPassword(&options.password)) return "the password cannot be read";
  if (broker().tls) {
    options.tls = TlsContext::Make(options_.tls, broker(), log_);
    if (options.tls == nullptr) return "the files for TLS cannot be used";
  }
  options.clientId = options_.clientId;
  options.userName = options_.userName;
  options.willTopic = options_.willTopic;
  options.willPayload = options_.willPayload;
  options.keepAliveSeconds = options_.keepAliveSeconds;
  options.inFlight = options_.inFlight;
  options.largestPacket = kLargestPacket;
  std::string problem;
  session_ = Session::Connect(options, address, broker().port, &problem);
  if (session_ == nullptr) return problem;
  // The session closes its own descriptor without the loop's knowledge.
  UniqueFd watched(::fcntl(session_->socket(), F_DUPFD_CLOEXEC, 0));
  if (!watched.valid() || !socket_.Open(std::move(watched), UV_READABLE | UV_WRITABLE, OnSocket, this)) {
    return "too many descriptors are open";
  }
  state_ = State::kConnect;
  timer_.Set(Clock::now() + options_.connectTime);
  return {};
}

void BrokerLink::Line::FailAttempt(const std::string &why, bool refused) {
  ++figures_.failures;
  figures_.problem = why;
  Say(why);
  PauseThen(at_ + 1, refused);
  listener_.OnAttemptFailed(why);
}

// What stays as it is goes into the log once.
void BrokerLink::Line::Say(const std::string &why) {
  if (said_[at_] == why) return;
  said_[at_] = why;
  failureSaid_ = true;
  log_.Print("broker %s: %s", broker().Text().c_str(), why.c_str());
}

}  // namespace zor::bridge
