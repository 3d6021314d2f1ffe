#include "programs/process_state.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace zor::daemon {
namespace {

// The library's loop sleeps in one of these; its waits for a reply do not.
constexpr auto kLoopCalls = std::to_array<long>({
    SYS_pselect6,
#ifdef SYS_pselect6_time64
    SYS_pselect6_time64,
#endif
});

std::string FileText(int pid, const char *name) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/" + name);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The fields of a process, from its state on: they follow the name of the program, which may contain anything.
std::istringstream Fields(int pid) {
  const std::string text = FileText(pid, "stat");
  const size_t nameEnd = text.rfind(')');
  return std::istringstream(nameEnd == std::string::npos ? "" : text.substr(nameEnd + 1));
}

void Skip(std::istringstream &fields, int count) {
  std::string skipped;
  for (int i = 0; i < count; ++i) fields >> skipped;
}

bool SleepsInLoop(int pid) {
  std::istringstream text(FileText(pid, "syscall"));
  long call = -1;
  return text >> call && std::find(kLoopCalls.begin(), kLoopCalls.end(), call) != kLoopCalls.end();
}

}  // namespace

ProcessState StateOf(int pid) {
  ProcessState state;
  std::istringstream fields = Fields(pid);
  if (!(fields >> state.letter)) return {};
  uint64_t userTicks = 0, systemTicks = 0, pages = 0;
  int threads = 0;
  Skip(fields, 10);
  fields >> userTicks >> systemTicks;
  Skip(fields, 4);
  fields >> threads;
  Skip(fields, 1);
  fields >> state.startedTicks;
  Skip(fields, 1);
  if (!(fields >> pages)) return state;
  state.cpuMs = (userTicks + systemTicks) * 1000 / static_cast<uint64_t>(::sysconf(_SC_CLK_TCK));
  state.residentBytes = pages * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
  // Of several threads any may be the one that waits.
  state.inLoop = threads == 1 && SleepsInLoop(pid);
  return state;
}

}  // namespace zor::daemon
