#include "programs/keeper_notices.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zor::daemon {
namespace {

constexpr mode_t kSocketMode = 0600;
constexpr size_t kMostDescriptors = 16;  // of a datagram; further ones are closed by the kernel

std::string_view TakeLine(std::string_view &text) {
  const size_t length = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, length);
  text.remove_prefix(std::min(length + 1, text.size()));
  return line;
}

// Only the first belongs to a notice.
void TakeDescriptors(const cmsghdr *head, UniqueFd &first) {
  const size_t count = (head->cmsg_len - CMSG_LEN(0)) / sizeof(int);
  for (size_t index = 0; index < count; ++index) {
    int fd;
    std::memcpy(&fd, CMSG_DATA(head) + index * sizeof fd, sizeof fd);
    UniqueFd owner(fd);
    if (!first.valid()) first = std::move(owner);
  }
}

}  // namespace

bool Notice::Has(std::string_view line) const {
  for (std::string_view rest = text; !rest.empty();) {
    if (TakeLine(rest) == line) return true;
  }
  return false;
}

std::string_view Notice::ValueOf(std::string_view name) const {
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = TakeLine(rest);
    if (line.starts_with(name) && line.substr(name.size()).starts_with('=')) return line.substr(name.size() + 1);
  }
  return {};
}

ExitCode KeeperNotices::Open(const std::string &fixedPath, ProblemLog &log) {
  const ExitCode code = socket_.OpenBeside(fixedPath, ".keeper", SOCK_DGRAM, kSocketMode, log);
  if (code != kExitOk) return code;
  constexpr int kOn = 1;
  if (::setsockopt(socket_.fd(), SOL_SOCKET, SO_PASSCRED, &kOn, sizeof kOn) == 0) return kExitOk;
  log.PrintErrno("%s.keeper", fixedPath.c_str());
  return kExitFailure;
}

bool KeeperNotices::Take(Notice &notice) {
  iovec vector = {buffer_.data(), buffer_.size()};
  alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(kMostDescriptors * sizeof(int))>
      control;
  msghdr message = {};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  ssize_t count;
  do {
    count = ::recvmsg(socket_.fd(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return false;
  notice.sender = 0;
  notice.fd.reset();
  notice.text = {buffer_.data(), static_cast<size_t>(count)};
  for (cmsghdr *head = CMSG_FIRSTHDR(&message); head != nullptr; head = CMSG_NXTHDR(&message, head)) {
    if (head->cmsg_level != SOL_SOCKET) continue;
    if (head->cmsg_type == SCM_RIGHTS) TakeDescriptors(head, notice.fd);
    if (head->cmsg_type != SCM_CREDENTIALS) continue;
    ucred sender;
    std::memcpy(&sender, CMSG_DATA(head), sizeof sender);
    notice.sender = sender.pid;
  }
  return true;
}

}  // namespace zor::daemon
