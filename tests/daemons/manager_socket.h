// A service manager as far as a server sees it: a socket that receives its notifications, with NOTIFY_SOCKET set.
#ifndef TESTS_DAEMONS_MANAGER_SOCKET_H
#define TESTS_DAEMONS_MANAGER_SOCKET_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/unique_fd.h"
#include "support/child.h"

namespace zor::test {

struct Notification {
  std::string text;  // empty when nothing arrived
  UniqueFd fd;
};

class ManagerSocket {
 public:
  // The name is a path, or "@" and an abstract name.
  explicit ManagerSocket(const std::string &name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    if (name[0] == '@') address.sun_path[0] = '\0';
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(::bind(fd_.get(), reinterpret_cast<const sockaddr *>(&address), length), 0);
    ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
  }
  ~ManagerSocket() { ::unsetenv("NOTIFY_SOCKET"); }
  ManagerSocket(const ManagerSocket &) = delete;
  ManagerSocket &operator=(const ManagerSocket &) = delete;

  // The next notification; waits for one until the deadline.
  Notification Take(std::chrono::milliseconds deadline = kPatience) const {
    pollfd entry = {fd_.get(), POLLIN, 0};
    if (::poll(&entry, 1, static_cast<int>(deadline.count())) != 1) return {};
    char text[256];
    iovec vector = {text, sizeof text};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr message = {};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t count = ::recvmsg(fd_.get(), &message, MSG_CMSG_CLOEXEC);
    int fd = -1;
    if (const cmsghdr *head = CMSG_FIRSTHDR(&message)) std::memcpy(&fd, CMSG_DATA(head), sizeof fd);
    return {std::string(text, count > 0 ? static_cast<size_t>(count) : 0), UniqueFd(fd)};
  }

 private:
  UniqueFd fd_{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

}  // namespace zor::test

#endif
