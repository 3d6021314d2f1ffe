#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zor/status.h>
#include <zor/uv.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "common/child_signal.h"
#include "sdk/loop/child/process.h"
#include "support/capture.h"
#include "support/child.h"

namespace zor::test {
namespace {

constexpr uint32_t kOutputs = UV_PROCESS_STDOUT | UV_PROCESS_STDERR;
constexpr uint32_t kNobody = 0xffffffff;
UvLoop *const mainLoop = ZOR_UV_LoopGetDefault();

// A shell script and what its callbacks report. The options may be changed before the start.
struct Shell {
  explicit Shell(const char *script, uint32_t flags = 0) : args{"sh", "-c", script, nullptr} {
    options.file = "/bin/sh";
    options.args = args;
    options.flags = flags;
    options.data = this;
    options.exitCallback = OnExit;
    options.outputCallback = OnOutput;
    options.inputCallback = OnInput;
  }
  Shell(const Shell &) = delete;

  uint32_t Spawn() { return ZOR_UV_ProcessSpawn(nullptr, &process, &options); }
  // Starts it and runs the loop until it exits; returns how it ended.
  std::string Run() {
    onExit = [] { ZOR_UV_LoopStop(mainLoop); };
    EXPECT_EQ(Spawn(), ZOR_OK);
    EXPECT_EQ(ZOR_UV_LoopRun(nullptr, 0), ZOR_OK);
    return ended;
  }

  static Shell &Of(const UvProcess *process) { return *static_cast<Shell *>(process->header.data); }
  static void OnExit(UvProcess *process, int32_t, int32_t exitCode, int32_t termSignal) {
    EXPECT_EQ(process->pid, -1);
    Of(process).ended = termSignal != 0 ? "signal " + std::to_string(termSignal) : "exit " + std::to_string(exitCode);
    Of(process).onExit();
  }
  static void OnOutput(UvProcess *process, UvIO *stream, uint32_t streamId) {
    char piece[4096];
    const ssize_t count = ::read(stream->fd, piece, sizeof piece);
    if (count <= 0) return ZOR_UV_ProcessDeleteRedirectIO(process, stream);
    (streamId == UV_PROCESS_STDOUT ? Of(process).out : Of(process).err).append(piece, static_cast<size_t>(count));
  }
  static void OnInput(UvProcess *process, UvIO *stream) {
    std::string &text = Of(process).input;
    const ssize_t count = ::write(stream->fd, text.data(), std::min(text.size(), size_t{PIPE_BUF}));
    text.erase(0, static_cast<size_t>(count));
    if (text.empty()) ZOR_UV_ProcessDeleteRedirectIO(process, stream);
  }

  const char *args[4];
  UvProcessOptions options = {};
  UvProcess *process = nullptr;
  std::string input, out, err;
  std::string ended;  // "exit N" or "signal N"
  std::function<void()> onExit = [] {};
};

class Process : public testing::Test {
 protected:
  ~Process() override { ZOR_UV_LoopDestroy(mainLoop); }
};

TEST_F(Process, IsSetUpAsTheOptionsSay) {
  static constexpr const char *kEnvironment[] = {"PATH=/nowhere:/bin", "GREETING=hello", nullptr};
  static constexpr gid_t kGroups[] = {8, 7};
  const char *const leads = "exec test $(cut -d' ' -f6 /proc/$$/stat) = $$";
  constexpr uint32_t kAccount = UV_PROCESS_SETUID | UV_PROCESS_SETGID;
  using Options = UvProcessOptions;
  const struct {
    const char *script;
    uint32_t flags;
    std::function<void(Options &)> change;
    const char *ended, *out;
  } cases[] = {
      {"kill -9 $$", 0, [](Options &) {}, "signal 9", ""},
      {"", 0, [](Options &o) { o.file = "/missing"; }, "exit 127", "execve process [/missing] failed with 2.\n"},
      {"", 0, [](Options &o) { o.file = "/etc/passwd"; }, "exit 127", "execve process [/etc/passwd] failed with 13.\n"},
      {"pwd", 0, [](Options &o) { o.cwd = "/usr"; }, "exit 0", "/usr\n"},
      {"pwd", 0, [](Options &o) { o.cwd = "/missing"; }, "exit 127", ""},
      {"echo $GREETING", 0, [](Options &o) { o.file = "sh", o.env = kEnvironment; }, "exit 0", "hello\n"},
      {"umask", UV_PROCESS_UMASK, [](Options &o) { o.umask = 027; }, "exit 0", "0027\n"},
      {"ulimit -c", UV_PROCESS_NO_CORE, [](Options &) {}, "exit 0", "0\n"},
      {leads, UV_PROCESS_NEW_SESSION, [](Options &) {}, "exit 0", ""},
      // No account has this uid, so its groups are the given ones.
      {"id -u; id -G", kAccount, [](Options &o) { o.uid = 54321, o.gid = 9, o.groupCount = 2, o.groups = kGroups; },
       "exit 0", "54321\n9 7 8\n"},
      {"id -u; id -G", kAccount, [](Options &o) { o.uid = o.gid = 1; }, "exit 0", "1\n1\n"},
      {"", UV_PROCESS_SETUID, [](Options &o) { o.uid = kNobody; }, "exit 127", ""},
      {"", UV_PROCESS_SETGID, [](Options &o) { o.gid = kNobody; }, "exit 127", ""},
  };
  for (const auto &each : cases) {
    if (::geteuid() != 0 && (each.flags & kAccount) != 0) continue;
    Capture output;
    Shell shell(each.script, each.flags | kOutputs);
    each.change(shell.options);
    EXPECT_EQ(shell.Run(), each.ended) << each.script;
    EXPECT_EQ(shell.out, each.out) << each.script;
    EXPECT_EQ(output.Text(), shell.options.gid == kNobody ? "initgroups error" : "");
  }
}

TEST_F(Process, HasItsStreamsRedirected) {
  std::signal(SIGPIPE, SIG_IGN);
  const std::string large(300000, 'x');
  const struct {
    const char *script;
    uint32_t flags;
    std::string out, err;
  } cases[] = {
      {"cat; echo err >&2", UV_PROCESS_STDIN | kOutputs, large, "err\n"},
      {"exec <&- >&- 2>&-; exec sleep 0.05", UV_PROCESS_STDIN | kOutputs, "", ""},
      {"echo out; echo err >&2", UV_PROCESS_STDERR, "", "err\n"},
  };
  for (const auto &each : cases) {
    Capture output;
    Shell shell(each.script, each.flags);
    shell.input = each.out;
    EXPECT_EQ(shell.Run(), "exit 0") << each.script;
    EXPECT_EQ(shell.out, each.out) << each.script;
    EXPECT_EQ(shell.err, each.err) << each.script;
  }
  Child bare = Child::Function([] {
    for (int fd = 0; fd < 3; ++fd) ::close(fd);
    Shell shell("cat; echo err >&2; exit 5", UV_PROCESS_STDIN | kOutputs);
    shell.input = "in";
    return shell.Run() == "exit 5" && shell.out == "in" && shell.err == "err\n" ? 0 : 1;
  });
  EXPECT_EQ(bare.Wait(), 0) << "the daemon has no standard streams, so the pipes take their numbers";
}

TEST_F(Process, IsNotWaitedForLongerBecauseOthersKeepItsPipe) {
  Shell quiet("exec sleep 60 2>&- & echo $!", UV_PROCESS_STDOUT);
  EXPECT_EQ(quiet.Run(), "exit 0");
  EXPECT_EQ(::kill(std::stoi(quiet.out), SIGKILL), 0);
  Shell flood("exec yes 2>&- & sleep 0.1", UV_PROCESS_STDOUT);
  flood.options.outputCallback = [](UvProcess *process, UvIO *stream, uint32_t) {
    char piece[4096];
    if (::read(stream->fd, piece, sizeof piece) <= 0) ZOR_UV_ProcessDeleteRedirectIO(process, stream);
  };
  EXPECT_EQ(flood.Run(), "exit 0");
}

TEST_F(Process, HasItsOutputReadToTheEndWithoutASpareDescriptor) {
  static bool ended;
  Shell shell("echo out", UV_PROCESS_STDOUT);
  shell.options.outputCallback = [](UvProcess *process, UvIO *stream, uint32_t streamId) {
    Shell::OnOutput(process, stream, streamId);
    ended = process->stdio[1] == nullptr;
  };
  shell.onExit = [] { ZOR_UV_LoopStop(mainLoop); };
  ASSERT_EQ(shell.Spawn(), ZOR_OK);
  EXPECT_TRUE(WaitUntil([&] { return shell.process->exited != 0; }));
  rlimit limit;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlim_t soft = std::exchange(limit.rlim_cur, 3);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(ZOR_UV_LoopRun(nullptr, 0), ZOR_OK);
  limit.rlim_cur = soft;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_TRUE(ended);
  EXPECT_EQ(shell.out, "out\n");
}

TEST_F(Process, HasItsOutputReadToTheEndThoughSomeCallsReadNothing) {
  static int calls;
  calls = 0;
  Shell shell("echo 1; echo 2; echo 3", UV_PROCESS_STDOUT);
  shell.options.outputCallback = [](UvProcess *process, UvIO *stream, uint32_t) {
    if (++calls % 2 == 0) return;
    char byte;
    if (::read(stream->fd, &byte, 1) != 1) return ZOR_UV_ProcessDeleteRedirectIO(process, stream);
    Shell::Of(process).out += byte;
  };
  shell.onExit = [] { ZOR_UV_LoopStop(mainLoop); };
  ASSERT_EQ(shell.Spawn(), ZOR_OK);
  EXPECT_TRUE(WaitUntil([&] { return shell.process->exited != 0; })) << "all is left to the drain";
  EXPECT_EQ(ZOR_UV_LoopRun(nullptr, 0), ZOR_OK);
  EXPECT_EQ(shell.out, "1\n2\n3\n");
}

TEST_F(Process, HasDescriptorsClosedUpToTheLoopsHighest) {
  for (const int fd : {10, 50, 51}) ASSERT_EQ(::dup2(2, fd), fd);
  ASSERT_EQ(::dup3(2, 11, O_CLOEXEC), 11) << "like the sockets that the library makes";
  const char *script = "n=0; for i in 10 11 50 51; do n=$((2*n)); [ -e /proc/$$/fd/$i ] && n=$((n+1)); done; exit $n";
  Shell low(script);
  low.options.keepFd = [](const UvProcessOptions *, int32_t fd) -> uint32_t { return fd == 11 ? 1 : 0; };
  mainLoop->maxFd = 3;
  EXPECT_EQ(low.Run(), "exit 5") << "11 is kept, 51 is beyond";
  mainLoop->maxFd = 10;
  ASSERT_EQ(::dup2(2, 11), 11);
  EXPECT_EQ(Shell(script).Run(), "exit 7");
}

TEST_F(Process, ThatEndsBetweenTheIdlePassAndTheWaitIsFinished) {
  Shell shell("exit 6");
  shell.onExit = [] { ZOR_UV_LoopStop(mainLoop); };
  ASSERT_EQ(shell.Spawn(), ZOR_OK);
  UvIdle *hook = ZOR_UV_IdleStart(nullptr, [](UvIdle *idle, uint32_t) {
    const auto *process = static_cast<UvProcess *>(idle->header.data);
    EXPECT_TRUE(WaitUntil([&] { return process->pid == -1 || process->exited != 0; }));
  });
  hook->header.data = shell.process;
  EXPECT_EQ(ZOR_UV_LoopRun(nullptr, 0), ZOR_OK);
  EXPECT_EQ(shell.ended, "exit 6");
}

TEST_F(Process, EndsMayShareASignalAndStartOthers) {
  static std::vector<int32_t> reaped;
  Shell first("exit 1");
  Shell second("kill -15 $$");
  Shell third("exec sleep 60");
  first.onExit = [&] {
    EXPECT_EQ(third.Spawn(), ZOR_OK);
    ZOR_UV_ProcessKill(third.process, SIGKILL);
  };
  third.onExit = [] { ZOR_UV_LoopStop(mainLoop); };
  {
    const ChildSignalBlock block;
    for (Shell *shell : {&first, &second}) {
      shell->options.reapCallback = [](UvProcess *, int32_t, int32_t termSignal, int32_t exitCode) {
        reaped.push_back(100 * termSignal + exitCode);
      };
      ASSERT_EQ(shell->Spawn(), ZOR_OK);
      siginfo_t info;
      ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(shell->process->pid), &info, WEXITED | WNOWAIT), 0);
    }
  }
  EXPECT_THAT(reaped, testing::UnorderedElementsAre(1, 1500));
  EXPECT_EQ(ZOR_UV_LoopRun(nullptr, 0), ZOR_OK);
  EXPECT_EQ(first.ended + second.ended + third.ended, "exit 1signal 15signal 9");
}

TEST_F(Process, ThatCannotBeSpawnedLeavesNothingOpen) {
  Shell shell("exit 0", UV_PROCESS_STDIN | kOutputs);
  rlimit limit;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlim_t soft = std::exchange(limit.rlim_cur, 3);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(shell.Spawn(), ZOR_E_IO) << "no gate";
  limit.rlim_cur = 1100;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  const auto next = [] { return UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)); };
  std::vector<UniqueFd> filler;
  while (filler.empty() || filler.back().get() < 1021) filler.push_back(next());
  EXPECT_EQ(shell.Spawn(), ZOR_E_IO) << "a stream that the loop cannot watch";
  EXPECT_EQ(next().get(), 1022);
  filler.clear();
  limit.rlim_cur = soft;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST_F(Process, IsRunToItsEndByASynchronousSpawn) {
  const struct {
    const char *script;
    uint32_t status;
    const char *ended;
  } cases[] = {{"echo out; exit 3", 3, "exit 3"},
               {"echo out; kill -9 $$", ZOR_E_TIMEOUT, "signal 9"},
               {"echo out; kill -15 $$", 0, "signal 15"}};
  for (const auto &each : cases) {
    Shell shell(each.script, UV_PROCESS_STDOUT);
    EXPECT_EQ(ZOR_UV_ProcessSpawnSync(&shell.options, 0), each.status);
    EXPECT_EQ(shell.ended + shell.out, each.ended + std::string("out\n"));
  }
  Shell silent("exit 4", UV_PROCESS_STDIN | kOutputs);
  silent.options.exitCallback = nullptr;
  silent.options.outputCallback = nullptr;
  silent.options.inputCallback = nullptr;
  EXPECT_EQ(ZOR_UV_ProcessSpawnSync(&silent.options, 0), 4u);
  EXPECT_EQ(ZOR_UV_ProcessSpawnSync(nullptr, 0), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_UV_LoopGetDefault(), mainLoop);
}

// A run of the loop from inside a callback, which a timer of its own stops.
void RunUntilStopped(uint32_t idleTimeMs) {
  UvTimer *guard = ZOR_UTIL_TimerAdd(
      20, 1, [](void *) { ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault()); }, nullptr);
  ZOR_UV_LoopRun(nullptr, idleTimeMs);
  ZOR_UTIL_TimerDel(guard);
}

TEST_F(Process, OfASynchronousSpawnMayRunAndStopTheLoopInItsCallbacks) {
  static std::function<void()> onOutput;
  const std::function<void()> actions[] = {
      [] { RunUntilStopped(0); },
      [] { RunUntilStopped(60000); },
      [] { ZOR_UV_LoopRun(nullptr, 1); },
      [] { ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault()); },
      [] {  // a run that sees the end of the child
        while (ZOR_UV_LoopRun(nullptr, 1000) == ZOR_E_TIMEOUT) continue;
      },
  };
  for (const auto &action : actions) {
    Shell shell("echo out; sleep 0.2; echo more; exit 3", UV_PROCESS_STDOUT);
    onOutput = action;
    shell.onExit = [] { ZOR_UV_LoopRun(nullptr, 1); };
    shell.options.outputCallback = [](UvProcess *process, UvIO *stream, uint32_t streamId) {
      Shell::OnOutput(process, stream, streamId);
      if (onOutput != nullptr) std::exchange(onOutput, nullptr)();
    };
    EXPECT_EQ(ZOR_UV_ProcessSpawnSync(&shell.options, 0), 3u);
    EXPECT_EQ(shell.ended + shell.out, "exit 3out\nmore\n");
  }
}

TEST_F(Process, MaySpawnSynchronouslyFromACallbackButNotFromASynchronousOne) {
  Shell inner("exit 5");
  Shell outer("exit 6");
  Shell async("exit 7");
  outer.onExit = [&] { EXPECT_EQ(ZOR_UV_ProcessSpawnSync(&inner.options, 0), ZOR_E_BUSY); };
  async.onExit = [&] {
    EXPECT_EQ(ZOR_UV_ProcessSpawnSync(&outer.options, 0), 6u);
    ZOR_UV_LoopStop(mainLoop);
  };
  ASSERT_EQ(async.Spawn(), ZOR_OK);
  EXPECT_EQ(ZOR_UV_LoopRun(nullptr, 0), ZOR_OK);
  EXPECT_EQ(async.ended + outer.ended + inner.ended, "exit 7exit 6");
}

TEST_F(Process, ThatIsQuietForTooLongIsLeftRunning) {
  const struct {
    uint32_t idleTimeMs;
    std::function<void()> onInput;
  } cases[] = {
      {300, [] {}},
      {300, [] { RunUntilStopped(0); }},
      {300, [] { RunUntilStopped(50000); }},
      {0, [] { ZOR_UV_LoopSetIdleTime(nullptr, 300); }},
  };
  static pid_t child;
  static std::function<void()> onInput;
  for (const auto &each : cases) {
    Shell shell("exec sleep 60");
    onInput = each.onInput;
    shell.options.flags = UV_PROCESS_STDIN;
    shell.options.inputCallback = [](UvProcess *process, UvIO *stream) {
      child = process->pid;
      ZOR_UV_ProcessDeleteRedirectIO(process, stream);
      onInput();
    };
    EXPECT_EQ(ZOR_UV_ProcessSpawnSync(&shell.options, each.idleTimeMs), 0u);
    EXPECT_EQ(shell.ended, "");
    std::signal(SIGCHLD, SIG_DFL);
    ASSERT_GT(child, 0);
    EXPECT_EQ(::kill(child, SIGKILL), 0);
    EXPECT_EQ(::waitpid(child, nullptr, 0), child);
  }
}

}  // namespace
}  // namespace zor::test
