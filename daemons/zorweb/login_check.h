// Asks the system whether a password is right.
//
// The system's modules may block for seconds, load anything and need rights of their own, so they run in another
// process, zorweb-login: one that a service manager starts at a socket, with the rights that it takes, or a child of
// this one. It reads the user's name and the password, each with a NUL behind it, and writes "ok" or "no".
#ifndef ZORWEB_LOGIN_CHECK_H
#define ZORWEB_LOGIN_CHECK_H

#include <sys/types.h>

#include <functional>
#include <list>
#include <string>

#include "common/unique_fd.h"
#include "programs/loop_watch.h"
#include "programs/problem_log.h"

namespace zor::web {

class LoginCheck {
 public:
  enum class Result { kRight, kWrong, kBusy, kFailed };
  using Then = std::function<void(Result)>;

  // `socket` is a real path; empty: the program beside this one is run.
  LoginCheck(std::string socket, daemon::ProblemLog &log) : socket_(std::move(socket)), log_(log) {}
  LoginCheck(const LoginCheck &) = delete;
  LoginCheck &operator=(const LoginCheck &) = delete;
  ~LoginCheck();

  // Calls `then` once, now or later.
  void Start(const std::string &user, const std::string &password, Then then);

 private:
  struct Check {
    LoginCheck *owner = nullptr;
    Then then;
    pid_t child = -1;
    std::string answer;
    daemon::LoopWatch watch;
    daemon::LoopTimer timer;
  };

  UniqueFd Connect() const;
  static UniqueFd Run(pid_t &child);
  static void OnReadable(void *check, uint32_t event);
  static void OnTimeOver(void *check);
  void End(Check &check, Result result);
  static void Collect(Check &check);

  std::string socket_;
  daemon::ProblemLog &log_;
  std::list<Check> checks_;
};

}  // namespace zor::web

#endif
