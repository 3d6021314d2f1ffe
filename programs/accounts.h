// Who holds how much of a server's memory and how many of its connections. Each client's bytes are charged to the
// client, its user and the whole; users and the whole have a share.
//
// There are two ways to keep to a share. What can be refused is asked for first, with MayTake: a client always gets
// kOwnBytes, and beyond that at most twice what its user has left, whose share shrinks in the same way with what the
// whole has left. So whoever comes first never takes everything: something is left for every later client, even if all
// daemons run as one user. What cannot be refused is charged after it was taken, and while a share is exceeded, the
// client that holds most is cut off: one that takes little never pays for others.
#ifndef PROGRAMS_ACCOUNTS_H
#define PROGRAMS_ACCOUNTS_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "programs/holder.h"

namespace zor::daemon {

struct Shares {
  size_t clients;      // connections at one time
  size_t userClients;  // of one user
  size_t userBytes;
  size_t bytes;
};

class Accounts {
 public:
  // What every client may hold whatever the others do: its record and a message or two.
  static constexpr size_t kOwnBytes = 8192;

  explicit Accounts(const Shares &shares) : shares_(shares) {}

  // Whether the user may have one more connection.
  bool MayConnect(uid_t user) const;
  // The process that should give up one of its connections for a newcomer that has no room; nothing if none has clearly
  // more of them than the newcomer's: then the newcomer is turned away.
  std::optional<Holder> GiverTo(const Holder &newcomer) const;

  // Whether a user, or all of them together, hold more than their share.
  bool exceeded() const { return bytes_ > shares_.bytes || usersOver_ > 0; }
  // The user who holds most.
  std::optional<uid_t> LargestUser() const;
  bool IsOver(uid_t user) const;

  size_t clients() const { return clients_; }
  size_t bytes() const { return bytes_; }
  size_t BytesOf(uid_t user) const;
  size_t ClientsOf(uid_t user) const;

 private:
  friend class Charge;
  struct User {
    size_t clients = 0;
    size_t bytes = 0;
  };

  const Shares shares_;
  std::map<uid_t, User> users_;
  std::map<Holder, size_t> processes_;  // connections
  size_t clients_ = 0;
  size_t bytes_ = 0;
  size_t usersOver_ = 0;
};

// What one client holds. Ends with it.
class Charge {
 public:
  // Throws std::bad_alloc, with nothing changed.
  Charge(Accounts &accounts, const Holder &holder);
  ~Charge() { Release(); }
  Charge(const Charge &) = delete;
  Charge &operator=(const Charge &) = delete;

  // Charges another holder of the same user instead. Throws std::bad_alloc, with nothing changed.
  void MoveTo(const Holder &holder);
  // Whether the client may take so many bytes more.
  bool MayTake(size_t more) const;
  void Set(size_t bytes);
  size_t bytes() const { return bytes_; }
  const Holder &holder() const { return holder_; }
  // The client has ended: what it holds is about to be released.
  void Release();

 private:
  Accounts &accounts_;
  Holder holder_;
  std::map<uid_t, Accounts::User>::iterator user_;
  std::map<Holder, size_t>::iterator process_;
  size_t bytes_ = 0;
  bool released_ = false;
};

}  // namespace zor::daemon

#endif
