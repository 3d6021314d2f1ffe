// The statistics that daemons report: texts by name, kept in memory only.
#ifndef MLOGSERVER_STAT_TABLE_H
#define MLOGSERVER_STAT_TABLE_H

#include <cstddef>
#include <map>
#include <string>

namespace zor::mlogserver {

class StatTable {
 public:
  explicit StatTable(size_t maxCount) : maxCount_(maxCount) {}

  // Sets a value. False if the name is new and the table is full: a daemon that invents names must not push out those
  // of others.
  bool Set(const std::string &name, const std::string &value);
  // The value of a name; empty if there is none.
  std::string Get(const std::string &name) const;

 private:
  size_t maxCount_;
  std::map<std::string, std::string> values_;
};

}  // namespace zor::mlogserver

#endif
