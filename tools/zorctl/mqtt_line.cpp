// The line on libmosquitto. Callbacks come from C code, inside Turn alone: they store what arrived, and whatever goes
// wrong becomes a Failure after the call.
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <openssl/crypto.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <random>

#include "common/malloc_ptr.h"
#include "programs/problem_log.h"
#include "programs/tls/secret_file.h"
#include "zorctl/exit_code.h"
#include "zorctl/fleet_line.h"
#include "zorctl/fleet_tls.h"
#include "zorctl/text.h"
#include "zorctl/watchdog.h"

namespace zor::ctl {
namespace {

constexpr int kKeepAliveSeconds = 30;
// A gateway's status has some hundred kilobytes; a broker drops longer messages for this session.
constexpr uint32_t kMaxPacket = 4 * 1024 * 1024;
constexpr int kPacketsInATurn = 64;
constexpr Milliseconds kHousekeeping{1000};

// "reason code" of MQTT 5: from here on it reports a failure.
constexpr int kFirstFailure = 0x80;

struct Mosquitto {
  Mosquitto() { ::mosquitto_lib_init(); }
  Mosquitto(const Mosquitto &) = delete;
  Mosquitto &operator=(const Mosquitto &) = delete;
  ~Mosquitto() { ::mosquitto_lib_cleanup(); }
};

struct SessionFree {
  void operator()(mosquitto *session) const noexcept { ::mosquitto_destroy(session); }
};

class Properties {
 public:
  Properties() = default;
  Properties(const Properties &) = delete;
  Properties &operator=(const Properties &) = delete;
  ~Properties() { ::mosquitto_property_free_all(&list_); }

  void Add(int identifier, uint32_t value) { Check(::mosquitto_property_add_int32(&list_, identifier, value)); }
  void AddByte(int identifier, uint8_t value) { Check(::mosquitto_property_add_byte(&list_, identifier, value)); }
  void Add(int identifier, const std::string &text) {
    Check(::mosquitto_property_add_string(&list_, identifier, text.c_str()));
  }
  void AddBytes(int identifier, const std::string &bytes) {
    Check(::mosquitto_property_add_binary(&list_, identifier, bytes.data(), static_cast<uint16_t>(bytes.size())));
  }
  const mosquitto_property *list() const { return list_; }

 private:
  static void Check(int status) {
    if (status != MOSQ_ERR_SUCCESS) throw Failure(kExitFailure, ::mosquitto_strerror(status), "check the memory");
  }

  mosquitto_property *list_ = nullptr;
};

std::string RandomName() {
  std::random_device random;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "zorctl-%08x%08x", random(), random());
  return text.data();
}

class MqttLine : public FleetLine {
 public:
  MqttLine(const FleetAccess &access, const Deadline &deadline)
      : address_(access.address()), name_(RandomName()), session_(::mosquitto_new(name_.c_str(), true, this)) {
    if (session_ == nullptr) throw Failure(kExitFailure, "no memory for the connection", "check the memory");
    if (access.tls) tls_ = MakeTlsContext(access, &refusal_);
    Prepare(access);
    Connect(access, deadline);
  }
  MqttLine(const MqttLine &) = delete;
  MqttLine &operator=(const MqttLine &) = delete;
  ~MqttLine() override { ::mosquitto_disconnect_v5(session_.get(), 0, nullptr); }

  void Subscribe(const std::vector<std::string> &filters, int qos, const Deadline &deadline) override {
    std::vector<char *> list;
    list.reserve(filters.size());
    for (const std::string &filter : filters) list.push_back(const_cast<char *>(filter.c_str()));
    const int status = ::mosquitto_subscribe_multiple(session_.get(), &awaited_, static_cast<int>(list.size()),
                                                      list.data(), qos, 0, nullptr);
    CheckStatus(status);
    while (awaited_ != 0) {
      if (!Turn(deadline)) throw TimeOver();
    }
    if (subscribed_) return;
    throw Failure(kExitRefused, "the broker " + address_ + " refused to deliver " + filters.front() + " ...",
                  "let its access list allow that for this user");
  }

  void Publish(const FleetMessage &message) override {
    Properties properties;
    properties.AddByte(MQTT_PROP_PAYLOAD_FORMAT_INDICATOR, 1);
    properties.Add(MQTT_PROP_CONTENT_TYPE, "application/json");
    if (message.expirySeconds != 0) properties.Add(MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, message.expirySeconds);
    if (!message.responseTopic.empty()) properties.Add(MQTT_PROP_RESPONSE_TOPIC, message.responseTopic);
    if (!message.correlation.empty()) properties.AddBytes(MQTT_PROP_CORRELATION_DATA, message.correlation);
    int number = 0;
    const int status =
        ::mosquitto_publish_v5(session_.get(), &number, message.topic.c_str(), static_cast<int>(message.payload.size()),
                               message.payload.data(), 1, false, properties.list());
    if (status == MOSQ_ERR_OVERSIZE_PACKET || status == MOSQ_ERR_PAYLOAD_SIZE || status == MOSQ_ERR_INVAL) {
      throw Failure(kExitUsage,
                    "the broker " + address_ + " does not take the message: " + ::mosquitto_strerror(status),
                    "it may be too large");
    }
    CheckStatus(status);
    unacknowledged_[number] = message.correlation;
  }

  std::optional<FleetDelivery> Receive(const Deadline &deadline) override {
    while (deliveries_.empty()) {
      if (!Turn(deadline)) return std::nullopt;
    }
    FleetDelivery first = std::move(deliveries_.front());
    deliveries_.pop_front();
    return first;
  }

  void StopWith(daemon::StopSignal &signal) override { stop_ = &signal; }
  bool stopped() const override { return stopped_; }
  const std::string &name() const override { return name_; }

 private:
  static MqttLine &Of(void *object) { return *static_cast<MqttLine *>(object); }

  void Prepare(const FleetAccess &access) {
    mosquitto *session = session_.get();
    CheckStatus(::mosquitto_int_option(session, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5));
    CheckStatus(::mosquitto_int_option(session, MOSQ_OPT_TCP_NODELAY, 1));
    if (tls_ != nullptr) {
      CheckStatus(::mosquitto_void_option(session, MOSQ_OPT_SSL_CTX, tls_.get()));
      CheckStatus(::mosquitto_int_option(session, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0));
    }
    SetUser(access);
    ::mosquitto_connect_v5_callback_set(
        session, [](mosquitto *, void *object, int reason, int, const mosquitto_property *) noexcept {
          Of(object).answer_ = reason;
        });
    ::mosquitto_disconnect_v5_callback_set(
        session, [](mosquitto *, void *object, int reason, const mosquitto_property *) noexcept {
          Of(object).farewell_ = reason;
        });
    ::mosquitto_subscribe_callback_set(
        session, [](mosquitto *, void *object, int number, int count, const int *granted) noexcept {
          Of(object).OnSubscribed(number, count, granted);
        });
    ::mosquitto_publish_v5_callback_set(
        session, [](mosquitto *, void *object, int number, int reason, const mosquitto_property *) noexcept {
          Of(object).OnAcknowledged(number, reason);
        });
    ::mosquitto_message_v5_callback_set(
        session, [](mosquitto *, void *object, const mosquitto_message *message,
                    const mosquitto_property *properties) noexcept { Of(object).OnMessage(*message, properties); });
    ::mosquitto_log_callback_set(session, [](mosquitto *, void *object, int level, const char *text) noexcept {
      if (level == MOSQ_LOG_ERR) Of(object).problem_ = text;
    });
  }

  void SetUser(const FleetAccess &access) {
    if (access.user.empty()) {
      if (access.passwordFile.empty()) return;
      throw Failure(kExitUsage, "a password without a user", "the broker's URL names the user: mqtts://USER@HOST");
    }
    std::string password;
    if (!access.passwordFile.empty()) {
      daemon::ProblemLog log("zorctl");
      tls::SecretFile file;
      if (!file.Read("password file", access.passwordFile, log)) {
        throw Failure(kExitUsage, "the password cannot be read", "check --password-file");
      }
      password = file.text().substr(0, file.text().find_first_of("\r\n"));
    }
    CheckStatus(::mosquitto_username_pw_set(session_.get(), access.user.c_str(),
                                            access.passwordFile.empty() ? nullptr : password.c_str()));
    OPENSSL_cleanse(password.data(), password.size());
  }

  void Connect(const FleetAccess &access, const Deadline &deadline) {
    Properties properties;
    properties.Add(MQTT_PROP_MAXIMUM_PACKET_SIZE, kMaxPacket);
    {
      const Watchdog watchdog(deadline,
                              "zorctl: the broker does not accept connections; check its address and network\n");
      errno = 0;
      const int status = ::mosquitto_connect_bind_v5(session_.get(), access.host.c_str(), access.port,
                                                     kKeepAliveSeconds, nullptr, properties.list());
      if (status != MOSQ_ERR_SUCCESS) throw NotConnected(status, errno);
    }
    while (answer_ < 0) {
      if (!Turn(deadline)) throw TimeOver();
    }
    if (answer_ == 0) return;
    throw Failure(kExitRefused, "the broker " + address_ + " refused the connection: " + ReasonText(answer_),
                  "check user, password file and certificate, and its access list");
  }

  // One wait for the broker. False at the deadline or when the user stops the verb.
  bool Turn(const Deadline &deadline) {
    mosquitto *session = session_.get();
    const short wanted = ::mosquitto_want_write(session) ? POLLIN | POLLOUT : POLLIN;
    pollfd watched[] = {{::mosquitto_socket(session), wanted, 0}, {stop_ == nullptr ? -1 : stop_->fd(), POLLIN, 0}};
    const int ready = ::poll(watched, std::size(watched), deadline.Within(kHousekeeping).pollTimeout());
    if (ready > 0 && watched[1].revents != 0) stopped_ = true;
    if (stopped_) return false;
    const short events = ready > 0 ? watched[0].revents : short{0};
    int status = MOSQ_ERR_SUCCESS;
    if ((events & ~POLLOUT) != 0) status = Read();
    if (status == MOSQ_ERR_SUCCESS && (events & POLLOUT) != 0)
      status = ::mosquitto_loop_write(session, kPacketsInATurn);
    if (status == MOSQ_ERR_SUCCESS) status = ::mosquitto_loop_misc(session);
    CheckStatus(status);
    return ready > 0 || !deadline.over();
  }

  // TLS may hold data that the socket no longer shows.
  int Read() {
    int status = MOSQ_ERR_SUCCESS;
    do {
      status = ::mosquitto_loop_read(session_.get(), kPacketsInATurn);
      const auto *ssl = static_cast<const SSL *>(::mosquitto_ssl_get(session_.get()));
      if (ssl == nullptr || SSL_pending(ssl) == 0) break;
    } while (status == MOSQ_ERR_SUCCESS);
    return status;
  }

  void OnSubscribed(int number, int count, const int *granted) {
    if (number != awaited_) return;
    awaited_ = 0;
    subscribed_ = std::all_of(granted, granted + count, [](int each) { return each < kFirstFailure; });
  }

  void OnAcknowledged(int number, int reason) {
    const auto message = unacknowledged_.extract(number);
    if (message.empty() || reason < kFirstFailure) return;
    deliveries_.push_back({"", "", message.mapped(), ReasonText(reason), false});
  }

  void OnMessage(const mosquitto_message &message, const mosquitto_property *properties) {
    FleetDelivery delivery{message.topic,
                           {static_cast<const char *>(message.payload), static_cast<size_t>(message.payloadlen)},
                           "",
                           "",
                           message.retain};
    void *bytes = nullptr;
    uint16_t length = 0;
    if (::mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &bytes, &length, false) != nullptr) {
      const MallocPtr<void> owner(bytes);
      delivery.correlation.assign(static_cast<const char *>(bytes), length);
    }
    deliveries_.push_back(std::move(delivery));
  }

  static std::string ReasonText(int reason) { return Escape(::mosquitto_reason_string(reason)); }

  void CheckStatus(int status) const {
    // A broker that refuses the connection closes it.
    if (status == MOSQ_ERR_SUCCESS || answer_ > 0) return;
    if (answer_ < 0) throw NotConnected(status, errno);
    const std::string why = farewell_ >= kFirstFailure ? ReasonText(farewell_) : ::mosquitto_strerror(status);
    throw Failure(kExitNoServer, "the broker " + address_ + " has disconnected: " + why, "run this command again");
  }

  Failure TimeOver() const {
    return {kExitTimeOver, "the broker " + address_ + " does not reply", "check what listens there"};
  }

  Failure NotConnected(int status, int error) const {
    if (!refusal_.empty()) {
      return {kExitRefused, "the certificate of the broker " + address_ + " is not accepted: " + refusal_,
              "check --ca, the name in the URL, and the certificate"};
    }
    const bool isTls = problem_.find("OpenSSL") != std::string::npos;
    std::string why = ::mosquitto_strerror(status);
    if (status == MOSQ_ERR_ERRNO) why = std::strerror(error);
    if (status == MOSQ_ERR_EAI) why = "the name cannot be resolved";
    if (isTls) why = "TLS failed: " + Escape(problem_);
    return {kExitNoServer, "no connection to the broker " + address_ + ": " + why,
            "check the URL, and that the broker runs"};
  }

  const Mosquitto library_;
  std::string address_;
  std::string name_;
  std::string refusal_;  // of the broker's certificate
  std::string problem_;  // the library's latest error
  tls::ContextPtr tls_;
  std::unique_ptr<mosquitto, SessionFree> session_;
  int answer_ = -1;  // to the connection: a reason code; -1: none yet
  int farewell_ = 0;
  int awaited_ = 0;  // the subscription without a reply
  bool subscribed_ = false;
  std::map<int, std::string> unacknowledged_;  // correlations
  std::deque<FleetDelivery> deliveries_;
  daemon::StopSignal *stop_ = nullptr;
  bool stopped_ = false;
};

}  // namespace

std::unique_ptr<FleetLine> OpenMqttLine(const FleetAccess &access, const Deadline &deadline) {
  return std::make_unique<MqttLine>(access, deadline);
}

}  // namespace zor::ctl
