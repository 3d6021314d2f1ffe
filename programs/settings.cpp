#include "programs/settings.h"

#include <zor/platform/file.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "common/malloc_ptr.h"
#include "programs/limits.h"

namespace zor::daemon {
namespace {

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kSpace = " \t\r";
  const size_t first = text.find_first_not_of(kSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

}  // namespace

Settings Settings::FromFile(const std::string &path, bool mustExist) {
  void *block = nullptr;
  std::uint32_t length = 0;
  errno = 0;
  const std::uint32_t status = ZOR_UTIL_ReadFileToBuf(path.c_str(), &block, &length);
  const int error = errno;
  const MallocPtr<void> owner(block);
  Settings settings;
  settings.name_ = path;
  if (status == ZOR_FILE_OK && length <= limits::kSettingsFile) {
    return FromText({static_cast<const char *>(block), length}, path);
  }
  if (error == ENOENT && !mustExist) return settings;
  settings.AddMistake(path + ": " + (error == 0 ? "not a settings file" : std::strerror(error)));
  return settings;
}

Settings Settings::FromText(std::string_view text, std::string name) {
  Settings settings;
  settings.name_ = std::move(name);
  for (int number = 1; !text.empty(); ++number) {
    const size_t end = text.find('\n');
    settings.AddLine(text.substr(0, end), number);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return settings;
}

void Settings::AddLine(std::string_view line, int number) {
  line = Trim(line);
  if (line.empty() || line.front() == '#') return;
  const size_t equals = line.find('=');
  const std::string_view key = Trim(line.substr(0, equals));
  if (equals == std::string_view::npos || key.empty()) {
    AddMistakeAt(number, "not of the form key = value");
  } else if (const Entry *earlier = Find(key)) {
    AddMistakeAt(number, earlier->key + " is already set in line " + std::to_string(earlier->line));
  } else {
    entries_.push_back({std::string(key), std::string(Trim(line.substr(equals + 1))), number});
  }
}

Settings::Entry *Settings::Find(std::string_view key) {
  for (Entry &entry : entries_) {
    if (entry.key == key) return &entry;
  }
  return nullptr;
}

std::string Settings::Text(std::string_view key, std::string fallback) {
  Entry *entry = Find(key);
  if (entry == nullptr) return fallback;
  entry->used = true;
  return entry->value;
}

std::string Settings::Path(std::string_view key, std::string fallback) {
  std::string path = Text(key, std::move(fallback));
  if (!path.starts_with('/')) AddMistake(std::string(key) + " must be an absolute path");
  return path;
}

std::uint64_t Settings::Number(std::string_view key, std::uint64_t fallback, std::uint64_t least, std::uint64_t most) {
  Entry *entry = Find(key);
  if (entry == nullptr) return fallback;
  entry->used = true;
  std::uint64_t number = 0;
  if (ParseNumber(entry->value, &number) && number >= least && number <= most) return number;
  AddMistakeAt(entry->line,
               entry->key + " must be a number from " + std::to_string(least) + " to " + std::to_string(most));
  return fallback;
}

bool Settings::Flag(std::string_view key, bool fallback) {
  Entry *entry = Find(key);
  if (entry == nullptr) return fallback;
  entry->used = true;
  if (entry->value != "yes" && entry->value != "no") AddMistakeAt(entry->line, entry->key + " must be yes or no");
  return entry->value == "yes";
}

std::vector<std::pair<std::string, std::string>> Settings::WithPrefix(std::string_view prefix) {
  std::vector<std::pair<std::string, std::string>> found;
  for (Entry &entry : entries_) {
    if (!entry.key.starts_with(prefix)) continue;
    entry.used = true;
    found.emplace_back(entry.key.substr(prefix.size()), entry.value);
  }
  return found;
}

bool Settings::CheckAndReport(ProblemLog &log) const {
  bool clean = mistakes_.empty();
  for (const std::string &mistake : mistakes_) log.Print("%s", mistake.c_str());
  for (const Entry &entry : entries_) {
    if (entry.used) continue;
    clean = false;
    log.Print("%s:%d: no such setting: %s", name_.c_str(), entry.line, entry.key.c_str());
  }
  return clean;
}

void Settings::AddMistakeAt(int line, const std::string &text) {
  AddMistake(name_ + ':' + std::to_string(line) + ": " + text);
}

bool ParseNumber(std::string_view text, std::uint64_t *number) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  const char *end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, *number, hexadecimal ? 16 : 10);
  return result.ec == std::errc() && result.ptr == end;
}

}  // namespace zor::daemon
