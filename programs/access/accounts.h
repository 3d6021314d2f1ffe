// The numbers of users and groups, whose names stand in rules.
#ifndef PROGRAMS_ACCESS_ACCOUNTS_H
#define PROGRAMS_ACCESS_ACCOUNTS_H

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zor::access {

class Accounts {
 public:
  // Those of this system: of its files, and what they lack from its name services. The files come first because name
  // services load libraries into the process.
  static Accounts OfSystem();
  // Those of the files "passwd" and "group" in a directory, such as that of an image for another machine.
  static Accounts OfDirectory(const std::string &directory);

  // A name or a number; no value for an unknown name.
  std::optional<uid_t> User(const std::string &name) const;
  std::optional<gid_t> Group(const std::string &name) const;
  // All groups of a user, in ascending order.
  std::vector<gid_t> GroupsOf(uid_t user) const;
  // The name of a number, or the number as text.
  std::string UserName(uid_t user) const;
  std::string GroupName(gid_t group) const;

 private:
  struct Record {
    unsigned number = 0;
    unsigned group = 0;                // of a user
    std::vector<std::string> members;  // of a group
  };
  using Records = std::map<std::string, Record, std::less<>>;

  static Records ReadRecords(const std::string &path, bool isGroups);

  Records users_;
  Records groups_;
  bool asksSystem_ = false;
};

}  // namespace zor::access

#endif
