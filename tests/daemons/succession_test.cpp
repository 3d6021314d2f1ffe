// How a program is replaced in place: the trial, and the exec.
#include "programs/succession.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>

#include "daemons/manager_socket.h"
#include "programs/stop_signal.h"
#include "programs/version.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

using namespace zor::daemon;  // NOLINT(google-build-using-namespace): the subject
using testing::HasSubstr;
using testing::StartsWith;

UniqueFd StateOf(const std::string &text) {
  UniqueFd file = NewStateFile();
  EXPECT_EQ(::write(file.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  ::lseek(file.get(), 0, SEEK_SET);
  return file;
}

class SuccessionTest : public testing::Test {
 protected:
  // Puts a shell script at the server's path.
  void Install(const std::string &script, mode_t mode = 0755) {
    std::ofstream(image_.path) << "#!/bin/sh\n" << script << '\n';
    ::chmod(image_.path.c_str(), mode);
  }
  // Waits until the trial has ended.
  Succession::Outcome Await(Succession &succession) {
    EventPoll poll;
    poll.Add(succession.fd(), EPOLLIN, nullptr);
    Succession::Outcome outcome = Succession::Outcome::kUnderWay;
    while (outcome == Succession::Outcome::kUnderWay) {
      if (poll.Wait(static_cast<int>(kPatience.count())).empty()) return outcome;
      outcome = succession.Continue();
    }
    return outcome;
  }

  TempRoot root_;
  char name_[7] = "server";
  char option_[7] = "--mine";
  char *arguments_[3] = {name_, option_, nullptr};
  ProgramImage image_{arguments_};
  ProblemLog log_{"server"};

  SuccessionTest() { image_.path = root_.Path("/server"); }
};

TEST_F(SuccessionTest, RefusesWhatFailsItsTrialWithTheReasonAndLeavesNothingBehind) {
  const std::string limit = std::to_string(limits::kTrialTime.count());
  const struct {
    const char *script;
    mode_t mode;
    std::string reason;
  } cases[] = {
      {"read state <&3; echo $0 $*: no $state >&2; echo more >&2; exit 5", 0755,
       image_.path + ": " + image_.path + " --mine --check-state: no state;more"},
      {"exit 7", 0755, image_.path + ": exit status 7"},
      {"echo oh >&2; kill -SEGV $$", 0755, image_.path + ": oh; signal 11"},
      {"yes | head -c 100000 >&2; exit 1", 0755, image_.path + ": y;y;"},
      {"exec 2>&-; exec sleep 1000", 0755, image_.path + ": its trial has not ended within " + limit + " s"},
      {"test -z \"$NOTIFY_SOCKET\" || exit 1; exit 3", 0755, image_.path + ": exit status 3"},
      {"exit 0", 0644, image_.path + ": Permission denied"},
      {nullptr, 0, image_.path + ": No such file or directory"},
  };
  const ManagerSocket manager(root_.Path("/manager"));
  Succession succession(image_, log_);
  for (const auto &each : cases) {
    ::unlink(image_.path.c_str());
    if (each.script != nullptr) Install(each.script, each.mode);
    const bool begun = succession.Begin(StateOf("state\n"));
    EXPECT_TRUE(!begun || Await(succession) == Succession::Outcome::kRefused);
    EXPECT_THAT(succession.reason(), StartsWith(each.reason));
    EXPECT_LT(succession.reason().size(), 1000u);
    EXPECT_FALSE(succession.underWay());
    EXPECT_THAT(manager.Take().text, StartsWith("RELOADING=1\nMONOTONIC_USEC="));
    EXPECT_THAT(manager.Take().text, StartsWith("STATUS=not handed over: " + image_.path));
    EXPECT_EQ(manager.Take().text, "READY=1");
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "the trial is reaped";
  }
}

TEST_F(SuccessionTest, StaysAsItWasWhenTheProgramDisappearsAfterItsTrial) {
  Install("exit 0");
  Succession succession(image_, log_);
  ASSERT_TRUE(succession.Begin(StateOf("state")));
  ASSERT_EQ(Await(succession), Succession::Outcome::kAccepted);
  ::unlink(image_.path.c_str());
  const UniqueFd state = StateOf("state");
  const UniqueFd kept(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const int numbers[] = {kept.get()};
  succession.Execute(state, numbers);
  EXPECT_THAT(succession.reason(), HasSubstr("No such file"));
  EXPECT_EQ(::fcntl(kept.get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(::fcntl(state.get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(::getenv(kHandOverVariable), nullptr);
}

// What the successor gets: the arguments, the state, the kept descriptors and no others, and a signal of meanwhile.
TEST_F(SuccessionTest, HandsOverInTheSameProcess) {
  Install(
      "case $* in *--check-state) exit 0;; esac\n"
      "trap stopped=stopped TERM; set -- $* $ZOR_HANDOVER\n"
      "cd /proc/$$/fd; echo \"$$ $1 $3 $(cat $2) $(cat 40) $(test -e 41 || echo closed)\"\n"
      "while test -z \"$stopped\"; do sleep 0.01; done; echo $stopped; exit 3");
  std::optional<Capture> output(1);
  Child child = Child::Function([this] {
    const ServerSignals signals;
    Succession succession(image_, log_);
    if (!succession.Begin(StateOf("snapshot")) || Await(succession) != Succession::Outcome::kAccepted) return 1;
    const UniqueFd state = StateOf("final");
    ::dup3(StateOf("client").get(), 40, O_CLOEXEC);
    ::dup3(state.get(), 41, O_CLOEXEC);
    ::kill(::getpid(), SIGTERM);
    const int kept[] = {40};
    succession.Execute(state, kept);
    return 2;
  });
  const std::string pid = std::to_string(child.pid());
  EXPECT_EQ(child.Wait(), 3);
  const std::string text = output->Text();
  output.reset();
  EXPECT_EQ(text, pid + " --mine " + Version() + " final client closed\nstopped\n");
}

TEST(Inheritance, IsTakenOnceAndOnlyWhenItIsWhole) {
  const auto take = [](const std::string &value) {
    ::setenv(kHandOverVariable, value.c_str(), 1);
    const bool found = TakeInheritance().has_value();
    return found && ::getenv(kHandOverVariable) == nullptr && !TakeInheritance();
  };
  const int fd = StateOf("state").release();
  const std::string number = std::to_string(fd);
  EXPECT_FALSE(take("0 1.0 1 2")) << "a standard descriptor";
  EXPECT_FALSE(take("x 1.0 1 2"));
  EXPECT_FALSE(take("99999 1.0 1 2"));
  EXPECT_FALSE(take(""));
  ::setenv(kHandOverVariable, (number + " 1.0 1 2").c_str(), 1);
  ::fcntl(fd, F_SETFD, 0);
  const auto inherited = TakeInheritance();
  ASSERT_TRUE(inherited.has_value());
  EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(inherited->version, "1.0");
  const MappedState state(fd);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(state.bytes().data()), state.bytes().size()), "state");
  EXPECT_FALSE(TakeInheritance());
}

}  // namespace
}  // namespace zor::test
