// The statistics that daemons leave with the server: texts by name, for as long as the server runs.
#ifndef MLOGSERVER_STAT_TABLE_H
#define MLOGSERVER_STAT_TABLE_H

#include <cstddef>
#include <map>
#include <string>

namespace zor::mlogserver {

class StatTable {
 public:
  explicit StatTable(size_t maxCount) : maxCount_(maxCount) {}

  // Sets a value. False when the name is a new one and the table is full: what is known stays, because a daemon that
  // invents names must not push out those of others.
  bool Set(const std::string &name, const std::string &value);
  // The value of a name; empty when there is none.
  std::string Get(const std::string &name) const;

 private:
  size_t maxCount_;
  std::map<std::string, std::string> values_;
};

}  // namespace zor::mlogserver

#endif
