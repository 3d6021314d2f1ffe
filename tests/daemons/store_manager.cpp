#include "daemons/store_manager.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <sstream>

#include "programs/service_manager.h"

namespace zor::test {
namespace {

constexpr int kFirstPassed = 3;

// In a child of a process with threads: only what a signal handler may do. Never returns.
[[noreturn]] void Execute(const std::vector<int> &numbers, char **arguments, char **environment, char *pidText) {
  const auto [end, error] = std::to_chars(pidText, pidText + 16, ::getpid());
  *end = '\0';
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // also when the test is killed
  int next = kFirstPassed;
  for (const int number : numbers) ::dup2(number, next++);
  ::execve(arguments[0], arguments, environment);
  ::_exit(127);
}

}  // namespace

StoreManager::StoreManager(const std::string &path) : socket_(path), thread_([this] { Serve(); }) {}

StoreManager::~StoreManager() {
  Kill();
  stopped_ = true;
  thread_.join();
}

void StoreManager::Start(std::vector<std::string> command) {
  std::vector<UniqueFd> high;
  std::vector<int> numbers;
  std::string names = "LISTEN_FDNAMES=";
  {
    const std::lock_guard lock(mutex_);
    for (const auto &[name, fd] : store) {
      high.emplace_back(::fcntl(fd.get(), F_DUPFD_CLOEXEC, 400));
      numbers.push_back(high.back().get());
      names += (numbers.size() > 1 ? ":" : "") + name;
    }
  }
  std::string count = "LISTEN_FDS=" + std::to_string(numbers.size());
  std::array<char, 32> pid = {"LISTEN_PID="};
  std::vector<char *> environment = {names.data(), count.data(), pid.data()};
  for (char **each = environ; *each != nullptr; ++each) environment.push_back(*each);
  environment.push_back(nullptr);
  std::vector<char *> arguments;
  for (std::string &argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  const int before = ready_;
  server_ = ::fork();
  if (server_ == 0) Execute(numbers, arguments.data(), environment.data(), pid.data() + 11);
  EXPECT_TRUE(AwaitReady(before));
}

void StoreManager::Signal(int number) const {
  if (server_ > 0) ::kill(server_, number);
}

void StoreManager::Kill() {
  if (server_ <= 0) return;
  Signal(SIGKILL);
  ::waitpid(server_, nullptr, 0);
  server_ = -1;
  Settle();
}

void StoreManager::Settle() {
  const int before = settled_;
  EXPECT_TRUE(daemon::RemoveStoredDescriptors("settle"));
  EXPECT_TRUE(WaitUntil([&] { return settled_ > before; }));
}

bool StoreManager::IsRunning() const {
  siginfo_t ended = {};
  const auto server = static_cast<id_t>(server_);
  return server_ > 0 && ::waitid(P_PID, server, &ended, WEXITED | WNOHANG | WNOWAIT) == 0 && ended.si_pid == 0;
}

bool StoreManager::AwaitReady(int count) const {
  return WaitUntil([&] { return ready_ > count || !IsRunning(); }) && ready_ > count;
}

void StoreManager::Serve() {
  while (!stopped_) Handle(socket_.Take(std::chrono::milliseconds(20)));
}

void StoreManager::Handle(Notification notification) {
  std::string name;
  bool stores = false;
  bool removes = false;
  std::istringstream lines(notification.text);
  for (std::string line; std::getline(lines, line);) {
    if (line == "READY=1") ++ready_;
    if (line == "FDSTORE=1") stores = true;
    if (line == "FDSTOREREMOVE=1") removes = true;
    if (line.starts_with("FDNAME=")) name = line.substr(7);
  }
  const std::lock_guard lock(mutex_);
  if (stores) store.emplace_back(name, std::move(notification.fd));
  if (removes && name == "settle") ++settled_;
  if (removes) std::erase_if(store, [&](const auto &each) { return each.first == name; });
}

}  // namespace zor::test
