// A server for the tests of the keeper. Its N-th start does what its N-th argument asks for, or the last one; each
// letter is an action:
//
//   r ready         s store "stored"    m store many         d remove "dropped", after storing it
//   x a stranger's notices              t stopping           p print what was passed
//   0 to 9 exit     k killed            w wait for SIGTERM, then exit with 7
//   h wait for ever, without feeding the watchdog
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "programs/inheritance.h"
#include "programs/service_manager.h"
#include "programs/stop_signal.h"

namespace {

using namespace zor::daemon;  // NOLINT(google-build-using-namespace): the subject

// How often it has been started before.
int CountStart() {
  const std::string path = std::string(std::getenv("ZOR_ROOT")) + "/starts";
  std::ofstream(path, std::ios::app) << '.';
  return static_cast<int>(std::ifstream(path, std::ios::ate).tellg()) - 1;
}

zor::UniqueFd FileWith(const std::string &text) {
  zor::UniqueFd file = NewStateFile();
  return ::write(file.get(), text.data(), text.size()) > 0 ? std::move(file) : zor::UniqueFd();
}

void PrintPassed() {
  sigset_t signals;
  ::sigprocmask(SIG_SETMASK, nullptr, &signals);
  if (::sigismember(&signals, SIGTERM) != 0) std::printf("SIGTERM is blocked ");
  std::printf("passed:");
  for (const PassedDescriptor &each : TakePassedDescriptors()) {
    char text[16] = "";
    if (::pread(each.fd.get(), text, sizeof text - 1, 0) > 0) std::printf(" %s=%s", each.name.c_str(), text);
  }
  std::printf("\n");
}

void BeStranger() {
  if (::fork() == 0) {
    StoreDescriptor("strange", FileWith("strange").get());
    TellReady();
    std::_Exit(0);
  }
  ::wait(nullptr);
}

void Do(char action) {
  if (action >= '0' && action <= '9') std::_Exit(action - '0');
  switch (action) {
    case 'r':
      return TellReady();
    case 's':
      StoreDescriptor("stored", FileWith("content").get());
      return;
    case 'm':
      for (int index = 0; index < 40; ++index) StoreDescriptor("m" + std::to_string(index), FileWith("m").get());
      return;
    case 'd':
      StoreDescriptor("dropped", FileWith("dropped").get());
      RemoveStoredDescriptors("dropped");
      return;
    case 'x':
      return BeStranger();
    case 't':
      return TellStopping();
    case 'p':
      return PrintPassed();
    case 'k':
      ::raise(SIGKILL);
      return;
    default:
      StopSignal stop;
      std::printf("waiting\n");
      std::fflush(stdout);
      while (action == 'h' || !stop.Take()) ::usleep(1000);
      std::_Exit(7);
  }
}

}  // namespace

int main(int count, char **arguments) {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  const std::string actions = arguments[std::min(1 + CountStart(), count - 1)];
  for (const char action : actions) Do(action);
}
