#include "zorbridge/session.h"

#include <fcntl.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>

#include "zorbridge/properties.h"

namespace zor::bridge {
namespace {

// Packets that the library may take in one call while there is nothing to wait for.
constexpr int kMostPackets = 16;
constexpr char kTooLarge[] = "the broker sends a packet that is too large";
// Bytes between two pings that need not be part of a packet we hear of: the answers to them, in records of TLS.
constexpr int64_t kPingBytes = 1024;

// libmosquitto prepares OpenSSL for TLS in any case, which takes 100 KiB. What has been declined before, it leaves out.
void DeclineTls() {
  OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_NO_ADD_ALL_CIPHERS |
                          OPENSSL_INIT_NO_ADD_ALL_DIGESTS | OPENSSL_INIT_NO_LOAD_CONFIG,
                      nullptr);
}

bool InitLibrary(bool withTls) {
  static const bool initialised = [withTls] {
    if (!withTls) DeclineTls();
    return mosquitto_lib_init() == MOSQ_ERR_SUCCESS;
  }();
  return initialised;
}

std::string StatusText(int status) {
  switch (status) {
    case MOSQ_ERR_ERRNO:
      return errno == 0 ? "the broker has closed the connection" : std::strerror(errno);
    case MOSQ_ERR_SUCCESS:
    case MOSQ_ERR_CONN_LOST:
    case MOSQ_ERR_NO_CONN:
      return "the broker has closed the connection";
    case MOSQ_ERR_KEEPALIVE:
      return "the broker is silent: it does not answer within the keep-alive time";
    case MOSQ_ERR_PROTOCOL:
    case MOSQ_ERR_MALFORMED_PACKET:
      return "the broker breaks the protocol";
    default:
      return mosquitto_strerror(status);
  }
}

// Bytes that have been read from a connection. None: the kernel does not say.
std::optional<int64_t> BytesRead(int socket) {
  tcp_info info = {};
  socklen_t size = sizeof info;
  int unread = 0;
  // In this order: what comes in between must not count as read.
  const bool known = ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 && size == sizeof info &&
                     ::ioctl(socket, FIONREAD, &unread) == 0;
  return known ? std::optional(static_cast<int64_t>(info.tcpi_bytes_received) - unread) : std::nullopt;
}

// Such as "OpenSSL Error[0]: error:0A00010B:SSL routines::wrong version number".
std::string TlsProblemIn(std::string_view line) {
  const std::size_t reason = line.rfind("::");
  return "TLS: " + std::string(reason == std::string_view::npos ? line : line.substr(reason + 2));
}

// Before each call of the library: it takes what it finds for its own errors.
void ForgetErrors() {
  errno = 0;
  ERR_clear_error();
}

bool IsMqttRefusal(int code) {
  return code >= MQTT_RC_UNSPECIFIED;
}

// With any other reason to leave, the broker may take us back soon.
bool IsUnwelcome(int code) {
  return code == MQTT_RC_SESSION_TAKEN_OVER || code == MQTT_RC_NOT_AUTHORIZED || code == MQTT_RC_BANNED ||
         code == MQTT_RC_ADMINISTRATIVE_ACTION;
}

// The broker will not take it from anybody on this line, however often.
bool IsContentProblem(int status) {
  constexpr int kStatuses[] = {MOSQ_ERR_INVAL,           MOSQ_ERR_MALFORMED_UTF8,     MOSQ_ERR_PAYLOAD_SIZE,
                               MOSQ_ERR_OVERSIZE_PACKET, MOSQ_ERR_QOS_NOT_SUPPORTED,  MOSQ_ERR_RETAIN_NOT_SUPPORTED,
                               MOSQ_ERR_PROTOCOL,        MOSQ_ERR_DUPLICATE_PROPERTY, MOSQ_ERR_NOT_SUPPORTED};
  return std::find(std::begin(kStatuses), std::end(kStatuses), status) != std::end(kStatuses);
}

std::string WithReason(const std::string &text, const mosquitto_property *properties) {
  const std::string reason = TextOf(properties, MQTT_PROP_REASON_STRING);
  return reason.empty() ? text : text + " (" + reason + ')';
}

}  // namespace

std::string ReasonText(int code) {
  return mosquitto_reason_string(code);
}

// Called by the library, through which no exception may pass.
struct Session::Callbacks {
  template <class Work>
  static void Guard(void *session, Work work) {
    try {
      work(*static_cast<Session *>(session));
    } catch (const std::bad_alloc &) {
      static_cast<Session *>(session)->ended_ = true;
    }
  }

  static void OnConnect(mosquitto *client, void *session, int code, int, const mosquitto_property *properties) {
    Guard(session, [=](Session &self) {
      if (code == MQTT_RC_SUCCESS) {
        // Each would be answered with a subscription.
        if (self.accepted_) return self.End(StatusText(MOSQ_ERR_PROTOCOL));
        self.accepted_ = true;
        mosquitto_log_callback_set(client, nullptr);  // it would have a line of each packet from now on
        self.Note({SessionEvent::Kind::kAccepted, 0, ShortOf(properties, MQTT_PROP_SERVER_KEEP_ALIVE).value_or(0), {}});
        return;
      }
      self.refused_ = true;
      self.End(WithReason("the broker refuses this gateway: " + ReasonText(code), properties));
    });
  }
  static void OnDisconnect(mosquitto *, void *session, int code, const mosquitto_property *properties) {
    const int error = errno;
    Guard(session, [=](Session &self) {
      if (code == MQTT_RC_SESSION_TAKEN_OVER) {
        self.refused_ = true;
        self.End("another client has connected to the broker as " + self.clientId_ +
                 ": is there a second gateway with this name?");
        return;
      }
      self.refused_ = self.refused_ || IsUnwelcome(code);
      self.closed_ = code == MOSQ_ERR_CONN_LOST;
      errno = error;
      self.End(IsMqttRefusal(code) ? WithReason("the broker ends the session: " + ReasonText(code), properties)
                                   : StatusText(code));
    });
  }
  static void OnMessage(mosquitto *, void *session, const mosquitto_message *message,
                        const mosquitto_property *properties) {
    Guard(session, [=](Session &self) {
      if (message->payloadlen > self.largestPacket_) return self.End(kTooLarge);
      Delivery delivery;
      delivery.topic = message->topic;
      delivery.payload.assign(static_cast<const char *>(message->payload),
                              static_cast<std::size_t>(message->payloadlen));
      delivery.responseTopic = TextOf(properties, MQTT_PROP_RESPONSE_TOPIC);
      delivery.correlation = BinaryOf(properties, MQTT_PROP_CORRELATION_DATA);
      delivery.expirySeconds = NumberOf(properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL);
      delivery.retained = message->retain;
      delivery.properties = PairsOf(properties);
      self.Note({SessionEvent::Kind::kDelivery, message->mid, message->qos, std::move(delivery)});
    });
  }
  static void OnPublish(mosquitto *, void *session, int id, int code, const mosquitto_property *) {
    Guard(session, [=](Session &self) { self.Note({SessionEvent::Kind::kPublished, id, code, {}}); });
  }
  static void OnSubscribe(mosquitto *, void *session, int id, int count, const int *codes, const mosquitto_property *) {
    Guard(session, [=](Session &self) {
      const int code = count > 0 ? *std::max_element(codes, codes + count) : MQTT_RC_UNSPECIFIED;
      self.Note({SessionEvent::Kind::kSubscribed, id, code, {}});
    });
  }
  // The only way to OpenSSL's errors, which the library takes.
  static void OnLog(mosquitto *, void *session, int level, const char *text) {
    if (level != MOSQ_LOG_ERR || std::strncmp(text, "OpenSSL", 7) != 0) return;
    Guard(session, [=](Session &self) {
      if (self.tlsProblem_.empty()) self.tlsProblem_ = TlsProblemIn(text);
    });
  }
};

void Session::Destroyer::operator()(mosquitto *client) const noexcept {
  mosquitto_destroy(client);
}

Session::Session(const Options &options)
    : tls_(options.tls), clientId_(options.clientId), largestPacket_(options.largestPacket) {
  if (!InitLibrary(options.tls != nullptr)) return;
  client_.reset(mosquitto_new(clientId_.empty() ? nullptr : clientId_.c_str(), true, this));
}

Session::~Session() = default;

bool Session::SetUp(const Options &options) {
  mosquitto *client = client_.get();
  const auto inFlight = static_cast<int>(std::clamp<uint32_t>(options.inFlight, 1, UINT16_MAX));
  mosquitto_connect_v5_callback_set(client, Callbacks::OnConnect);
  mosquitto_disconnect_v5_callback_set(client, Callbacks::OnDisconnect);
  mosquitto_message_v5_callback_set(client, Callbacks::OnMessage);
  mosquitto_publish_v5_callback_set(client, Callbacks::OnPublish);
  mosquitto_subscribe_v5_callback_set(client, Callbacks::OnSubscribe);
  mosquitto_log_callback_set(client, Callbacks::OnLog);
  if (mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5) != MOSQ_ERR_SUCCESS ||
      mosquitto_int_option(client, MOSQ_OPT_RECEIVE_MAXIMUM, kMostPackets) != MOSQ_ERR_SUCCESS ||
      mosquitto_int_option(client, MOSQ_OPT_SEND_MAXIMUM, inFlight) != MOSQ_ERR_SUCCESS ||
      mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1) != MOSQ_ERR_SUCCESS) {
    return false;
  }
  if (!options.userName.empty() &&
      mosquitto_username_pw_set(client, options.userName.c_str(), options.password.c_str()) != MOSQ_ERR_SUCCESS) {
    return false;
  }
  if (options.tls != nullptr &&
      (mosquitto_int_option(client, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0) != MOSQ_ERR_SUCCESS ||
       mosquitto_void_option(client, MOSQ_OPT_SSL_CTX, options.tls->get()) != MOSQ_ERR_SUCCESS)) {
    return false;
  }
  Properties will, connect;
  const std::string &payload = options.willPayload;
  if (!options.willTopic.empty() &&
      (will.Json().status() != MOSQ_ERR_SUCCESS ||
       mosquitto_will_set_v5(client, options.willTopic.c_str(), static_cast<int>(payload.size()), payload.data(), 1,
                             true, will.release()) != MOSQ_ERR_SUCCESS)) {
    return false;
  }
  // Fails for want of a host; see session.h.
  mosquitto_connect_bind_v5(client, nullptr, 0, options.keepAliveSeconds, nullptr,
                            connect.Number(MQTT_PROP_MAXIMUM_PACKET_SIZE, options.largestPacket).get());
  return connect.status() == MOSQ_ERR_SUCCESS;
}

std::unique_ptr<Session> Session::Connect(const Options &options, const std::string &address, uint16_t port,
                                          std::string *problem) {
  std::unique_ptr<Session> session(new Session(options));
  if (session->client_ == nullptr || !session->SetUp(options)) {
    *problem = "the session cannot be set up: is its name, its will or its password malformed?";
    return nullptr;
  }
  ForgetErrors();
  const int status =
      mosquitto_connect_bind_async(session->client_.get(), address.c_str(), port, options.keepAliveSeconds, nullptr);
  if (status != MOSQ_ERR_SUCCESS && status != MOSQ_ERR_CONN_PENDING) {
    // A broker that is near may have gone through the handshake already.
    session->End("cannot connect: " + StatusText(status));
    *problem = session->why();
    return nullptr;
  }
  ::fcntl(session->socket(), F_SETFD, FD_CLOEXEC);
  return session;
}

int Session::socket() const {
  return mosquitto_socket(client_.get());
}

bool Session::inHandshake() const {
  const auto *ssl = static_cast<const SSL *>(mosquitto_ssl_get(client_.get()));
  return ssl != nullptr && SSL_is_init_finished(ssl) == 0;
}

bool Session::wantsToWrite() const {
  if (ended_) return false;
  if (!reached_) return true;
  const auto *ssl = static_cast<const SSL *>(mosquitto_ssl_get(client_.get()));
  return inHandshake() ? SSL_want_write(ssl) : mosquitto_want_write(client_.get());
}

// False when there is no connection yet, or never will be.
bool Session::Reach() {
  if (reached_ || ended_) return reached_ && !ended_;
  int error = 0;
  socklen_t size = sizeof error;
  sockaddr_in6 peer = {};
  socklen_t peerSize = sizeof peer;
  if (::getsockopt(socket(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
  if (error != 0) {
    End(std::string("cannot connect: ") + std::strerror(error));
  } else if (::getpeername(socket(), reinterpret_cast<sockaddr *>(&peer), &peerSize) == 0) {
    reached_ = true;
  } else {
    CheckAlive();
  }
  return reached_;
}

// While it connects and in a handshake: the library takes the end of the connection for a call to try again.
bool Session::CheckAlive() {
  char byte = 0;
  const ssize_t count = ::recv(socket(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  if (count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR))) return true;
  End(count < 0 ? std::strerror(errno) : "the broker has closed the connection");
  return false;
}

void Session::Read() {
  if (!Reach() || (inHandshake() && !CheckAlive())) return;
  if (!packetBegin_) packetBegin_ = BytesRead(socket());
  ForgetErrors();
  Check(mosquitto_loop_read(client_.get(), kMostPackets));
  if (!ended_) CheckSize();
}

void Session::Write() {
  if (!Reach() || (inHandshake() && !CheckAlive())) return;
  ForgetErrors();
  if (inHandshake()) Check(mosquitto_loop_read(client_.get(), 1));
  if (!ended_ && !inHandshake()) Check(mosquitto_loop_write(client_.get(), kMostPackets));
}

void Session::KeepAlive() {
  if (ended_) return;
  ForgetErrors();
  Check(mosquitto_loop_misc(client_.get()));
  if (packetBegin_) *packetBegin_ += kPingBytes;
}

void Session::Check(int status) {
  if (status != MOSQ_ERR_SUCCESS || socket() < 0) End(StatusText(status));
}

// Twice the size, since TLS adds to it and the counts are not taken at one instant.
void Session::CheckSize() {
  if (!events_.empty()) return packetBegin_.reset();
  const std::optional<int64_t> read = BytesRead(socket());
  if (!read || !packetBegin_) return;
  packetBegin_ = std::min(*packetBegin_, *read);
  if (*read - *packetBegin_ > 2 * largestPacket_) End(kTooLarge);
}

// The first reason is the best one.
void Session::End(const std::string &why) {
  if (why_.empty()) why_ = why;
  ended_ = true;
}

std::string Session::why() const {
  if (tls_ != nullptr && !tls_->problem().empty()) return tls_->problem();
  if (!accepted_ && !tlsProblem_.empty()) return tlsProblem_;
  return why_.empty() ? "out of memory" : why_;
}

void Session::Note(SessionEvent event) {
  events_.push_back(std::move(event));
}

Session::Sent Session::Publish(const Publication &publication, int *id, std::string *problem) {
  Properties properties;
  properties.Json();
  for (const auto &[name, value] : publication.properties) properties.Pair(name, value);
  if (!publication.responseTo.empty()) properties.Text(MQTT_PROP_RESPONSE_TOPIC, publication.responseTo);
  if (!publication.correlation.empty()) properties.Binary(MQTT_PROP_CORRELATION_DATA, publication.correlation);
  if (publication.expirySeconds) properties.Number(MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, *publication.expirySeconds);
  ForgetErrors();
  int status = properties.status();
  if (status == MOSQ_ERR_SUCCESS) {
    status =
        mosquitto_publish_v5(client_.get(), id, publication.topic.c_str(), static_cast<int>(publication.payload.size()),
                             publication.payload.data(), publication.qos, publication.retain, properties.get());
  }
  if (IsContentProblem(status)) {
    *problem = mosquitto_strerror(status);
    return Sent::kRefused;
  }
  if (status != MOSQ_ERR_SUCCESS || socket() < 0) {
    End(StatusText(status));
    return Sent::kBroken;
  }
  return Sent::kSent;
}

void Session::Subscribe(const std::vector<std::string> &topics, bool retainedToo) {
  const int options = MQTT_SUB_OPT_RETAIN_AS_PUBLISHED |
                      (retainedToo ? MQTT_SUB_OPT_SEND_RETAIN_ALWAYS : MQTT_SUB_OPT_SEND_RETAIN_NEVER);
  std::vector<char *> texts;
  texts.reserve(topics.size());
  for (const std::string &topic : topics) texts.push_back(const_cast<char *>(topic.c_str()));
  ForgetErrors();
  const int status = mosquitto_subscribe_multiple(client_.get(), nullptr, static_cast<int>(texts.size()), texts.data(),
                                                  1, options, nullptr);
  if (status != MOSQ_ERR_SUCCESS) End("cannot subscribe: " + StatusText(status));
}

void Session::Disconnect() {
  if (ended_) return;
  ForgetErrors();
  Check(mosquitto_disconnect_v5(client_.get(), MQTT_RC_NORMAL_DISCONNECTION, nullptr));
}

}  // namespace zor::bridge
