// A settings file: lines of "key = value". Blank lines and lines that begin with '#' are skipped, white space around
// keys and values does not count, keys are case-sensitive. A file that does not exist holds no settings, so that every
// server runs without one. Mistakes are collected while settings are read and reported together: a server that finds
// any does not start.
#ifndef PROGRAMS_SETTINGS_H
#define PROGRAMS_SETTINGS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "programs/problem_log.h"

namespace zor::daemon {

class Settings {
 public:
  // Reads a file; path is opened unchanged (give it through FixedPath). A missing file is a mistake only when it was
  // asked for by name (mustExist).
  static Settings FromFile(const std::string &path, bool mustExist);
  // Reads a text; name stands for it in reports.
  static Settings FromText(std::string_view text, std::string name);

  // The value of a key, or the fallback when the file does not have it.
  std::string Text(std::string_view key, std::string fallback);
  // The same as an absolute path; any other text is a mistake.
  std::string Path(std::string_view key, std::string fallback);
  // The same as a number, decimal or with 0x; anything else, or one outside least..most, is a mistake.
  std::uint64_t Number(std::string_view key, std::uint64_t fallback, std::uint64_t least, std::uint64_t most);
  // The same as "yes" or "no".
  bool Flag(std::string_view key, bool fallback);
  // All settings whose key begins with the prefix, as pairs of the rest of the key and the value, in file order.
  std::vector<std::pair<std::string, std::string>> WithPrefix(std::string_view prefix);

  // Adds a mistake that only the caller can see, such as a value that means nothing to it.
  void AddMistake(std::string text) { mistakes_.push_back(std::move(text)); }
  // Prints every mistake, unknown keys included. True when there was none. Call it last.
  bool CheckAndReport(ProblemLog &log) const;

 private:
  struct Entry {
    std::string key;
    std::string value;
    int line;
    bool used = false;
  };

  Entry *Find(std::string_view key);
  void AddLine(std::string_view line, int number);
  void AddMistakeAt(int line, const std::string &text);

  std::string name_;
  std::vector<Entry> entries_;
  std::vector<std::string> mistakes_;
};

// A number, decimal or with 0x and nothing around it; false for anything else.
bool ParseNumber(std::string_view text, std::uint64_t *number);

}  // namespace zor::daemon

#endif
