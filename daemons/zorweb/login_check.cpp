#include "zorweb/login_check.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <span>
#include <utility>

#include "common/child_signal.h"
#include "common/socket_address.h"
#include "common/write_all.h"
#include "programs/limits.h"
#include "programs/local_address.h"

namespace zor::web {
namespace {

using namespace limits::zorweb;  // NOLINT(google-build-using-namespace): its own limits

constexpr char kProgram[] = "zorweb-login";

// Beside this program.
std::string ProgramPath() {
  std::array<char, PATH_MAX> own;
  const ssize_t length = ::readlink("/proc/self/exe", own.data(), own.size());
  const std::string path(own.data(), length > 0 ? static_cast<size_t>(length) : 0);
  return path.substr(0, path.rfind('/') + 1) + kProgram;
}

[[noreturn]] void Execute(int socket, const char *path, const char *const *arguments) {
  sigset_t none;
  sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
  std::signal(SIGPIPE, SIG_DFL);
  ::dup2(socket, STDIN_FILENO);
  ::dup2(socket, STDOUT_FILENO);
  ::close_range(STDERR_FILENO + 1, UINT_MAX, 0);
  ::execv(path, const_cast<char *const *>(arguments));
  ::_exit(127);
}

}  // namespace

LoginCheck::~LoginCheck() {
  for (Check &check : checks_) Collect(check);
}

UniqueFd LoginCheck::Connect() const {
  const auto address = daemon::LocalAddress(socket_);
  UniqueFd socket(address ? ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0) : -1);
  const bool connected = socket.valid() && ::connect(socket.get(), Generic(&*address), sizeof *address) == 0;
  return connected ? std::move(socket) : UniqueFd();
}

UniqueFd LoginCheck::Run(pid_t &child) {
  std::array<int, 2> ends = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return {};
  UniqueFd ours(ends[0]);
  const UniqueFd theirs(ends[1]);
  ::fcntl(ours.get(), F_SETFL, O_NONBLOCK);
  const std::string path = ProgramPath();
  const std::array<const char *, 2> arguments = {kProgram, nullptr};
  child = ::fork();
  if (child == 0) Execute(theirs.get(), path.c_str(), arguments.data());
  return child > 0 ? std::move(ours) : UniqueFd();
}

void LoginCheck::Start(const std::string &user, const std::string &password, Then then) {
  if (checks_.size() >= kLoginChecks) return then(Result::kBusy);
  Check &check = checks_.emplace_back();
  check.owner = this;
  check.then = std::move(then);
  UniqueFd socket = socket_.empty() ? Run(check.child) : Connect();
  const std::string question = user + '\0' + password + '\0';
  // So few bytes always fit an empty socket.
  if (!socket.valid() || !WriteAll(socket.get(), std::as_bytes(std::span(question))) ||
      !check.timer.Open(OnTimeOver, &check) || !check.watch.Open(std::move(socket), UV_READABLE, OnReadable, &check)) {
    log_.PrintErrno("cannot ask %s", socket_.empty() ? kProgram : socket_.c_str());
    return End(check, Result::kFailed);
  }
  check.timer.Set(std::chrono::steady_clock::now() + kLoginTime);
}

void LoginCheck::OnReadable(void *of, uint32_t) {
  auto &check = *static_cast<Check *>(of);
  std::array<char, 64> piece;
  const ssize_t count = ::read(check.watch.fd(), piece.data(), piece.size());
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count > 0) check.answer.append(piece.data(), static_cast<size_t>(count));
  if (count > 0 && check.answer.size() < piece.size()) return;
  const Result result = check.answer == "ok\n"   ? Result::kRight
                        : check.answer == "no\n" ? Result::kWrong
                                                 : Result::kFailed;
  if (result == Result::kFailed) check.owner->log_.Print("%s could not check a password", kProgram);
  check.owner->End(check, result);
}

void LoginCheck::OnTimeOver(void *of) {
  auto &check = *static_cast<Check *>(of);
  check.owner->log_.Print("%s has not answered in time", kProgram);
  check.owner->End(check, Result::kFailed);
}

void LoginCheck::End(Check &check, Result result) {
  const Then then = std::move(check.then);
  Collect(check);
  checks_.remove_if([&check](const Check &each) { return &each == &check; });
  then(result);
}

void LoginCheck::Collect(Check &check) {
  check.watch.Close();
  if (check.child <= 0) return;
  const ChildSignalBlock block;
  if (::waitpid(check.child, nullptr, WNOHANG) == 0) {
    ::kill(check.child, SIGKILL);
    while (::waitpid(check.child, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  check.child = -1;
}

}  // namespace zor::web
