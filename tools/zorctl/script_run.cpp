#include "zorctl/script_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zor/status.h>

#include <array>
#include <cerrno>
#include <utility>

namespace zor::ctl {
namespace {

// A file that only the script sees, so that a body of any length needs no writer.
UniqueFd InputOf(const std::string &body) {
  UniqueFd file(::memfd_create("request", MFD_CLOEXEC));
  std::string_view left = body;
  while (file.valid() && !left.empty()) {
    const ssize_t count = ::write(file.get(), left.data(), left.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return {};
    left.remove_prefix(static_cast<size_t>(count));
  }
  if (file.valid() && ::lseek(file.get(), 0, SEEK_SET) != 0) return {};
  return file;
}

class Spawning {
 public:
  Spawning(int input, int output, const sigset_t &mask) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    ::posix_spawnattr_init(&attributes_);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    ::posix_spawnattr_setpgroup(&attributes_, 0);
    ::posix_spawnattr_setsigmask(&attributes_, &mask);
    sigset_t ignored;  // by the tool
    ::sigemptyset(&ignored);
    ::sigaddset(&ignored, SIGPIPE);
    ::sigaddset(&ignored, SIGXFSZ);
    ::posix_spawnattr_setsigdefault(&attributes_, &ignored);
  }
  Spawning(const Spawning &) = delete;
  Spawning &operator=(const Spawning &) = delete;
  ~Spawning() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }

  pid_t Run(const std::string &path, const ScriptRun::Environment &own) const {
    std::vector<std::string> words = {path};
    std::vector<char *> arguments = {words[0].data(), nullptr}, environment;
    std::vector<std::string> added = own;
    for (std::string &each : added) environment.push_back(each.data());
    for (char **each = ::environ; *each != nullptr; ++each) environment.push_back(*each);  // of two the first counts
    environment.push_back(nullptr);
    pid_t pid = -1;
    return ::posix_spawn(&pid, path.c_str(), &actions_, &attributes_, arguments.data(), environment.data()) == 0 ? pid
                                                                                                                 : -1;
  }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

}  // namespace

ScriptRun::ScriptRun(const std::string &path, const Environment &environment, Message request, Milliseconds limit,
                     const sigset_t &mask)
    : request_(std::move(request)), start_(std::chrono::steady_clock::now()), deadline_(limit), status_(ZOR_E_IO) {
  std::array<int, 2> ends{-1, -1};
  const UniqueFd input = InputOf(request_.body);
  if (!input.valid() || ::pipe2(ends.data(), O_CLOEXEC) != 0) return;
  output_.reset(ends[0]);
  const UniqueFd writer(ends[1]);
  ::fcntl(output_.get(), F_SETFL, O_NONBLOCK);
  pid_ = Spawning(input.get(), writer.get(), mask).Run(path, environment);
  if (pid_ < 0) output_.reset();
}

ScriptRun::~ScriptRun() {
  if (pid_ >= 0) Kill();
}

// With its group; itself also if it has left that. Returns how it ended.
int ScriptRun::Kill() {
  int state = 0;
  ::kill(-pid_, SIGKILL);
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, &state, 0);
  pid_ = -1;
  return state;
}

void ScriptRun::Read() {
  std::array<char, 65536> bytes;
  while (output_.valid()) {
    const ssize_t count = ::read(output_.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) {
      output_.reset();
    } else if (reply_.size() + static_cast<size_t>(count) > kMaxBody) {
      tooLong_ = true;
      return;
    } else {
      reply_.append(bytes.data(), static_cast<size_t>(count));
    }
  }
}

// What the script leaves running in its group ends with it: nobody would bound that.
bool ScriptRun::Ended() {
  if (pid_ < 0) return true;
  siginfo_t info{};
  const bool exited =
      ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0;
  if (!exited && !deadline_.over() && !tooLong_) return false;
  if (exited) Read();
  const int state = Kill();
  output_.reset();
  if (tooLong_) {
    End(ZOR_E_NO_MEMORY);
  } else if (!exited) {
    End(ZOR_E_TIMEOUT);
  } else {
    status_ = WIFEXITED(state) ? static_cast<uint32_t>(WEXITSTATUS(state)) : ZOR_E_IO;
  }
  return true;
}

void ScriptRun::End(uint32_t status) {
  status_ = status;
  reply_.clear();
}

uint64_t ScriptRun::AgeMs() const {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - start_).count());
}

}  // namespace zor::ctl
