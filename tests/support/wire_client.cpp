#include "support/wire_client.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace zor::test {
namespace {

int ConnectTo(int domain, const void *address, socklen_t length) {
  const int fd = ::socket(domain, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0 || ::connect(fd, static_cast<const sockaddr *>(address), length) != 0) {
    std::perror("connect");
    std::abort();
  }
  return fd;
}

}  // namespace

WireClient WireClient::Connect(const std::string &path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return WireClient(ConnectTo(AF_UNIX, &address, sizeof address));
}

WireClient WireClient::ConnectTcp(uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return WireClient(ConnectTo(AF_INET, &address, sizeof address));
}

Message WireClient::Register(const std::string &name) const {
  return Ask(MakeMessage(ZOR_MSG_REGISTER_APP, name, "", 0, "", 1));
}

Message WireClient::Ask(const Message &message) const {
  Send(message);
  return Next();
}

Message WireClient::AskAndFetch(const Message &message, const std::string &root) const {
  Message reply = Ask(message);
  while (reply.header.type == ZOR_MSG_SEND_FAILED_NOTICE) reply = Next();
  if ((reply.header.type & ZOR_MSG_BODY_IN_FILE) == 0) return reply;
  const std::string path = root + reply.body.c_str();
  reply.body = ContentOf(path);
  std::filesystem::remove(path);
  return reply;
}

Message WireClient::Next() const {
  const auto message = ReceiveMessage();
  if (!message) ADD_FAILURE() << "no message came";
  return message.value_or(Message());
}

void WireClient::SendDescriptors(const std::string &bytes, const std::vector<int> &descriptors) const {
  const size_t size = descriptors.size() * sizeof(int);
  std::vector<char> control(CMSG_SPACE(size));
  iovec vector = {const_cast<char *>(bytes.data()), bytes.size()};
  msghdr message = {};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr *head = CMSG_FIRSTHDR(&message);
  head->cmsg_level = SOL_SOCKET;
  head->cmsg_type = SCM_RIGHTS;
  head->cmsg_len = CMSG_LEN(size);
  std::memcpy(CMSG_DATA(head), descriptors.data(), size);
  const ssize_t sent = ::sendmsg(fd(), &message, MSG_NOSIGNAL);
  if (sent < 0 && errno == EPIPE) return;  // the other end has closed; the test notices by what it does not receive
  EXPECT_EQ(sent, static_cast<ssize_t>(bytes.size()));
}

int WireClient::ReceiveDescriptor() const {
  pollfd entry = {fd(), POLLIN, 0};
  if (::poll(&entry, 1, static_cast<int>(kPatience.count())) != 1) return -1;
  char data[64];
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
  iovec vector = {data, sizeof data};
  msghdr message = {};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t count = ::recvmsg(fd(), &message, MSG_CMSG_CLOEXEC);
  const cmsghdr *head = CMSG_FIRSTHDR(&message);
  if (count != 2 || data[0] != 0 || data[1] != 0 || head == nullptr) return -1;
  int descriptor;
  std::memcpy(&descriptor, CMSG_DATA(head), sizeof descriptor);
  return descriptor;
}

}  // namespace zor::test
