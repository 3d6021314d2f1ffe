#include "zorctl/terminal_guard.h"

#define NCURSES_NOMACROS  // functions, in no conflict with names of the library
#include <ncursesw/curses.h>
// Its macros for capabilities are why nothing of ours is included behind it.
#include <ncursesw/term.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <string>
#include <string_view>

namespace zor::ctl {
namespace {

constexpr std::array kDeadly = {SIGHUP, SIGQUIT, SIGILL, SIGABRT, SIGBUS, SIGFPE, SIGSEGV};

// What the handler needs, as it may call next to nothing.
struct Remembered {
  pid_t owner = 0;
  int fd = -1;
  bool hasModes = false;
  termios modes = {};
  std::string text;  // ends the drawing
};
Remembered remembered;

// A capability without its pauses, which are for terminals of old.
std::string CapabilityOf(const char *name) {
  const char *found = ::tigetstr(name);
  if (found == nullptr || reinterpret_cast<intptr_t>(found) == -1) return {};
  std::string text = found;
  for (size_t at = text.find("$<"); at != text.npos; at = text.find("$<")) text.erase(at, text.find('>', at) - at + 1);
  return text;
}

void Restore(int number) {
  // A child that dies leaves the terminal to its parent.
  if (::getpid() == remembered.owner) {
    const std::string_view text = remembered.text;
    if (remembered.hasModes) ::tcsetattr(remembered.fd, TCSANOW, &remembered.modes);
    [[maybe_unused]] const ssize_t count = ::write(remembered.fd, text.data(), text.size());
  }
  // Its action is the usual one by now; it comes when this handler returns.
  ::raise(number);
}

// What others handle or ignore is left to them.
void Replace(void (*expected)(int), void (*wanted)(int)) {
  for (const int number : kDeadly) {
    struct sigaction action = {};
    if (::sigaction(number, nullptr, &action) != 0 || action.sa_handler != expected) continue;
    action = {};
    action.sa_handler = wanted;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    ::sigaction(number, &action, nullptr);
  }
}

}  // namespace

TerminalGuard::TerminalGuard(int fd) {
  remembered.fd = fd;
  remembered.hasModes = ::tcgetattr(fd, &remembered.modes) == 0;
}

TerminalGuard::~TerminalGuard() {
  Replace(Restore, SIG_DFL);
}

void TerminalGuard::Arm() {
  remembered.owner = ::getpid();
  remembered.text = "\r";
  for (const char *name : {"sgr0", "op", "rmkx", "cnorm", "rmcup"}) remembered.text += CapabilityOf(name);
  Replace(SIG_DFL, Restore);
}

}  // namespace zor::ctl
