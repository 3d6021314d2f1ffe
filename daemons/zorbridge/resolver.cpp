#include "zorbridge/resolver.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>

namespace zor::bridge {
namespace {

// Of what the child writes: lines, each an address or, behind '!', a problem.
constexpr std::size_t kMostText = 1024;

std::string Look(const char *host) {
  addrinfo wanted = {};
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo *found = nullptr;
  const int status = ::getaddrinfo(host, nullptr, &wanted, &found);
  if (status != 0) return std::string("!") + ::gai_strerror(status) + '\n';
  std::string text;
  std::size_t count = 0;
  for (const addrinfo *each = found; each != nullptr && count < Resolver::kMostAddresses; each = each->ai_next) {
    char address[NI_MAXHOST];
    if (::getnameinfo(each->ai_addr, each->ai_addrlen, address, sizeof address, nullptr, 0, NI_NUMERICHOST) != 0)
      continue;
    text.append(address) += '\n';
    ++count;
  }
  return text;
}

[[noreturn]] void LookAndExit(int pipe, const std::string &host) {
  // It has the daemon's connections, which must not seem to live on when the daemon has ended.
  constexpr int kPipe = STDERR_FILENO + 1;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::dup2(pipe, kPipe);
  ::close_range(kPipe + 1, UINT_MAX, 0);
  constexpr rlimit kSeconds = {5, 5};
  ::setrlimit(RLIMIT_CPU, &kSeconds);
  const std::string text = Look(host.c_str());
  const bool written = ::write(kPipe, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  ::_exit(written ? 0 : 1);
}

bool IsAddress(const std::string &text) {
  in6_addr address;
  return ::inet_pton(AF_INET, text.c_str(), &address) == 1 || ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

}  // namespace

bool Resolver::Start(const std::string &host) {
  Cancel();
  std::array<int, 2> ends = {};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) return false;
  UniqueFd reading(ends[0]);
  const UniqueFd writing(ends[1]);
  child_ = ::fork();
  if (child_ == 0) LookAndExit(writing.get(), host);
  text_.clear();
  if (child_ > 0 && pipe_.Open(std::move(reading), UV_READABLE, OnReadable, this)) return true;
  Cancel();
  return false;
}

void Resolver::Cancel() {
  pipe_.Close();
  if (child_ <= 0) return;
  // When the library has collected it already, its number may be that of another process.
  if (::waitpid(child_, nullptr, WNOHANG) == 0) {
    ::kill(child_, SIGKILL);
    while (::waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  child_ = -1;
}

void Resolver::OnReadable(void *self, uint32_t) {
  auto &resolver = *static_cast<Resolver *>(self);
  std::array<char, kMostText> piece;
  const ssize_t count = ::read(resolver.pipe_.fd(), piece.data(), piece.size());
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count > 0) resolver.text_.append(piece.data(), static_cast<std::size_t>(count));
  if (count <= 0 || resolver.text_.size() > kMostText) resolver.Finish();
}

void Resolver::Finish() {
  Cancel();
  std::vector<std::string> addresses;
  std::string problem = "its name has no address";
  for (std::size_t begin = 0, end; (end = text_.find('\n', begin)) != std::string::npos; begin = end + 1) {
    const std::string line = text_.substr(begin, end - begin);
    if (line.starts_with('!')) problem = "its name cannot be looked up: " + line.substr(1);
    if (IsAddress(line) && addresses.size() < kMostAddresses) addresses.push_back(line);
  }
  done_(self_, std::move(addresses), problem);
}

}  // namespace zor::bridge
