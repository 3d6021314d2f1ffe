// A real broker of a test's own: on a free loopback port, with its files in a directory of the test. For targets of
// zor_use_broker.
#ifndef TESTS_DAEMONS_BROKER_H
#define TESTS_DAEMONS_BROKER_H

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "support/child.h"

namespace zor::test {

inline sockaddr_in Loopback(uint16_t port) {
  return {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
}

// Bound to a free port, which it returns; not one that the kernel gives to others before it is bound again.
inline UniqueFd BoundSocket(uint16_t *port) {
  static std::minstd_rand random(static_cast<unsigned>(::getpid()));
  while (true) {
    *port = static_cast<uint16_t>(10000 + random() % 10000);
    UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = Loopback(*port);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) return socket;
  }
}

inline uint16_t FreePort() {
  uint16_t port = 0;
  BoundSocket(&port);
  return port;
}

class Broker {
 public:
  // More lines of its configuration: first those of the listener, such as its certificate.
  explicit Broker(std::string directory, std::string more = "allow_anonymous true\n")
      : path_(directory + "/broker" + std::to_string(++Count())), more_(std::move(more)) {
    Start();
  }

  // The lines for a listener that speaks TLS, with PEM texts, which are written to files.
  static std::string WithTls(const std::string &directory, const std::string &certificate, const std::string &key,
                             const std::string &authority) {
    const std::string path = directory + "/tls" + std::to_string(++Count());
    std::ofstream(path + ".pem") << certificate;
    std::ofstream(path + ".key") << key;
    std::ofstream(path + ".authority") << authority;
    return "certfile " + path + ".pem\nkeyfile " + path + ".key\ncafile " + path + ".authority\nallow_anonymous true\n";
  }

  uint16_t port() const { return port_; }
  std::string url(const std::string &scheme = "mqtt") const { return scheme + "://127.0.0.1:" + std::to_string(port_); }
  std::string log() const {
    std::ostringstream text;
    text << std::ifstream(path_ + ".log").rdbuf();
    return text.str();
  }

  // After Stop; on the same port again.
  void Start() {
    for (int attempt = 0; attempt < 10 && !process_; ++attempt) {
      if (port_ == 0 || attempt > 0) port_ = FreePort();
      std::ofstream(path_ + ".conf") << "listener " << port_ << " 127.0.0.1\n"
                                     << more_ << "log_dest file " << path_ << ".log\n"
                                     << (::geteuid() == 0 ? "user root\n" : "");
      const size_t logged = log().size();
      process_.emplace(Child::Program({BROKER_PREFIX "/usr/sbin/mosquitto", "-c", path_ + ".conf"}));
      // Its own word: at the port another one may listen, which was faster.
      const auto isRunning = [&] { return log().find(" running\n", logged) != std::string::npos; };
      WaitUntil([&] { return isRunning() || process_->Wait({}) >= 0; });
      if (!isRunning()) process_.reset();
    }
    ASSERT_TRUE(process_) << log();
  }
  void Stop(int signal = SIGTERM) {
    Signal(signal);
    process_->Wait();
    process_.reset();
  }
  // SIGSTOP and SIGCONT make it slow.
  void Signal(int number) { process_->Signal(number); }

  // A client of Debian's, such as {"mosquitto_sub", "-v", "-t", "#"}, with its output in a pipe.
  Child Client(std::vector<std::string> arguments) const {
    for (const std::string &each : {std::string("-V"), std::string("5"), std::string("-p"), std::to_string(port_)}) {
      arguments.push_back(each);
    }
    arguments.front() = BROKER_PREFIX "/usr/bin/" + arguments.front();
    return Child::Program(arguments);
  }

 private:
  static int &Count() {
    static int count = 0;
    return count;
  }
  std::string path_;
  std::string more_;
  uint16_t port_ = 0;
  std::optional<Child> process_;
};

// Accepts connections, answers the first packet of each with these bytes, and says nothing more.
class FakeBroker {
 public:
  explicit FakeBroker(std::string answer)
      : listener_(Listening(&port_)), process_(Child::Function([this, answer] { return Serve(answer); })) {}

  uint16_t port() const { return port_; }
  std::string url() const { return "mqtt://127.0.0.1:" + std::to_string(port_); }

 private:
  static UniqueFd Listening(uint16_t *port) {
    UniqueFd socket = BoundSocket(port);
    EXPECT_EQ(::listen(socket.get(), 16), 0);
    return socket;
  }
  int Serve(const std::string &answer) const {
    while (const int socket = ::accept(listener_.get(), nullptr, nullptr)) {
      char packet[1024];
      if (::recv(socket, packet, sizeof packet, 0) > 0) ::send(socket, answer.data(), answer.size(), MSG_NOSIGNAL);
    }
    return 0;
  }

  uint16_t port_ = 0;
  UniqueFd listener_;
  Child process_;
};

}  // namespace zor::test

#endif
