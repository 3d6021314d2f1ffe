// The two logs for the pages that want them: the user-visible one as the log daemon renders it, and the end of the
// developers' file. A page gets each anew when it has changed.
#ifndef ZORWEB_LOG_FEED_H
#define ZORWEB_LOG_FEED_H

#include <chrono>
#include <cstdint>
#include <string>

#include "zorweb/pages.h"

namespace zor::web {

class LogFeed {
 public:
  // `directory` is a fixed path, `mlogFile` a real one.
  LogFeed(const Pages &pages, std::string directory, std::string mlogFile)
      : pages_(pages), directory_(std::move(directory)), mlogFile_(std::move(mlogFile)) {}
  LogFeed(const LogFeed &) = delete;
  LogFeed &operator=(const LogFeed &) = delete;

  // Once a second.
  void OnTick();
  void Greet(EventStream &stream);

 private:
  void AskLog();
  void SetLog(const std::string &data);
  void ReadMlog();

  const Pages &pages_;
  std::string directory_;
  std::string mlogFile_;
  std::chrono::steady_clock::time_point lookedAt_;
  bool asking_ = false;
  std::string log_;  // events' data
  std::string mlog_;
};

}  // namespace zor::web

#endif
