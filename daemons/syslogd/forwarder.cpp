#include "syslogd/forwarder.h"

#include <netdb.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <utility>

#include "common/socket_address.h"

namespace zor::syslogd {
namespace {

constexpr std::uint16_t kSyslogPort = 514;

struct AddressFreer {
  void operator()(addrinfo *list) const { ::freeaddrinfo(list); }
};

template <std::size_t kSize>
std::string TextOf(const char (&field)[kSize]) {
  return {field, ::strnlen(field, kSize)};
}

std::string OwnHostName() {
  char name[HOST_NAME_MAX + 1] = "";
  return ::gethostname(name, sizeof name) == 0 ? TextOf(name) : std::string();
}

// Header fields contain printable ASCII characters only, without blanks.
std::string AsHeaderField(std::string text) {
  std::ranges::replace_if(
      text, [](char each) { return each < '!' || each > '~'; }, '_');
  return text;
}

}  // namespace

void Forwarder::SetServers(const ZOR_LOG_SERVERS &servers) {
  const std::string name = TextOf(servers.name);
  hostName_ = AsHeaderField(name.empty() ? OwnHostName() : name);
  targets_.clear();
  AddTarget(TextOf(servers.server1), servers.number1);
  AddTarget(TextOf(servers.server2), servers.port);
}

void Forwarder::AddTarget(const std::string &server, std::uint16_t port) {
  if (server.empty()) return;
  addrinfo hints = {};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo *list = nullptr;
  const std::string service = std::to_string(port == 0 ? kSyslogPort : port);
  const int result = ::getaddrinfo(server.c_str(), service.c_str(), &hints, &list);
  const std::unique_ptr<addrinfo, AddressFreer> owner(list);
  if (result != 0) {
    problems_.Print("remote server \"%s\": invalid address", server.c_str());
    return;
  }
  Target target = {
      UniqueFd(::socket(list->ai_family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)), {}, list->ai_addrlen};
  if (!target.socket.valid()) {
    problems_.PrintErrno("remote server \"%s\": cannot create a socket", server.c_str());
    return;
  }
  std::memcpy(&target.address, list->ai_addr, list->ai_addrlen);
  targets_.push_back(std::move(target));
}

void Forwarder::Forward(const LogRecord &record) {
  if (targets_.empty()) return;
  const std::string text = RenderRfc5424(record, language_, hostName_);
  for (const Target &target : targets_) {
    const sockaddr *address = Generic(&target.address);
    if (::sendto(target.socket.get(), text.data(), text.size(), MSG_NOSIGNAL, address, target.length) < 0) {
      problems_.PrintErrno("cannot send a record to a remote server");
    }
  }
}

}  // namespace zor::syslogd
