// Who holds how much of the server's memory and connections. Each client's bytes are charged to its user and to the
// whole; each of these has a share. Memory is charged after it was taken, and whoever holds most is then cut off: a
// client that takes little never pays for another user's, and the server exceeds a share by one turn's input at most.
#ifndef NOTIFYSERVER_ACCOUNTS_H
#define NOTIFYSERVER_ACCOUNTS_H

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <optional>

#include "notifyserver/limits.h"

namespace zor::notifyserver {

class Accounts {
 public:
  explicit Accounts(const Limits &limits) : limits_(limits) {}

  // Whether the user may have one more connection.
  bool MayConnect(uid_t user) const;
  // Whether a user, or all of them together, hold more than their share.
  bool exceeded() const { return bytes_ > limits_.memoryBytes || usersOver_ > 0; }
  // The user who holds most.
  std::optional<uid_t> LargestUser() const;
  bool IsOver(uid_t user) const;

 private:
  friend class Charge;
  struct User {
    size_t clients = 0;
    size_t bytes = 0;
  };

  const Limits limits_;
  std::map<uid_t, User> users_;
  size_t bytes_ = 0;
  size_t usersOver_ = 0;
};

// What one client holds. Ends with it.
class Charge {
 public:
  Charge(Accounts &accounts, uid_t user);
  ~Charge();
  Charge(const Charge &) = delete;
  Charge &operator=(const Charge &) = delete;

  void Set(size_t bytes);
  size_t bytes() const { return bytes_; }

 private:
  Accounts &accounts_;
  const uid_t user_;
  Accounts::User &account_;
  size_t bytes_ = 0;
};

}  // namespace zor::notifyserver

#endif
