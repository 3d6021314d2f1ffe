#include "programs/journal/crash_mark.h"

#include <array>
#include <csignal>

namespace zor::daemon {
namespace {

constexpr auto kCrashes = std::to_array<int>({SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL});

volatile uint32_t *g_mark = nullptr;

// The default action is in force again, so that the signal still ends the process.
void Note(int signal) {
  *g_mark = 1;
  ::raise(signal);
}

}  // namespace

// Whoever else handles such a signal, as sanitizers do, keeps it.
void NoteCrashes(Journal &journal) {
  g_mark = &journal.crashMark();
  for (const int signal : kCrashes) {
    struct sigaction before = {};
    if (::sigaction(signal, nullptr, &before) != 0 || before.sa_handler != SIG_DFL) continue;
    struct sigaction action = {};
    action.sa_handler = Note;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    ::sigaction(signal, &action, nullptr);
  }
}

}  // namespace zor::daemon
