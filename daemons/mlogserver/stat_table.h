// The statistics that daemons report: texts by name, kept in memory only. Each belongs to the user who set it first,
// who has a share of the table: a daemon that invents names must not push out those of others, nor change them.
#ifndef MLOGSERVER_STAT_TABLE_H
#define MLOGSERVER_STAT_TABLE_H

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>

namespace zor::mlogserver {

class StatTable {
 public:
  StatTable(size_t maxCount, size_t maxPerUser) : maxCount_(maxCount), maxPerUser_(maxPerUser) {}

  // Sets a value. Returns null, or why the value is refused: a new name beyond the table or the user's share, or the
  // name of another user. An operator may set any, and takes it over.
  const char *Set(const std::string &name, const std::string &value, uid_t user, bool isOperator);
  // The value of a name; empty if there is none.
  std::string Get(const std::string &name) const;

 private:
  struct Entry {
    std::string value;
    uid_t user;
  };

  const char *Add(const std::string &name, const std::string &value, uid_t user);

  size_t maxCount_;
  size_t maxPerUser_;
  std::map<std::string, Entry> entries_;
  std::map<uid_t, size_t> counts_;  // how many each user has
};

}  // namespace zor::mlogserver

#endif
