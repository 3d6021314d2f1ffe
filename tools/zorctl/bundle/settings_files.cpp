#include "zorctl/bundle/settings_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>
#include <vector>

#include "programs/paths.h"
#include "zorctl/bundle/privacy.h"
#include "zorctl/exit_code.h"
#include "zorctl/output.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

namespace fs = std::filesystem;

constexpr uintmax_t kMostBytes = uintmax_t{256} * 1024;
constexpr size_t kMostFiles = 1000;

struct SettingsFile {
  fs::path path;
  std::string text;
  std::string reason;  // why it is left out
};

SettingsFile Load(const fs::directory_entry &entry) {
  std::error_code error;
  SettingsFile file = {entry.path(), "", ""};
  if (entry.is_symlink(error)) file.reason = "a link";
  if (!entry.is_regular_file(error) && file.reason.empty()) file.reason = "not a file";
  if (file.reason.empty() && entry.file_size(error) > kMostBytes) file.reason = "too large";
  if (!file.reason.empty()) return file;
  std::ifstream stream(file.path, std::ios::binary);
  if (!stream) file.reason = std::strerror(errno);
  file.text.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
  if (file.reason.empty()) file.reason = SecretReason(file.path.filename().native(), file.text);
  return file;
}

std::vector<SettingsFile> LoadAll(const std::string &directory) {
  std::vector<SettingsFile> files;
  std::error_code error;
  fs::recursive_directory_iterator entries(directory, fs::directory_options::skip_permission_denied, error);
  if (error) throw Failure(kExitFailure, Escape(directory) + ": " + error.message(), "");
  for (; !error && entries != fs::recursive_directory_iterator() && files.size() < kMostFiles;
       entries.increment(error)) {
    if (!entries->is_directory(error)) files.push_back(Load(*entries));
  }
  std::sort(files.begin(), files.end(), [](const auto &a, const auto &b) { return a.path < b.path; });
  return files;
}

}  // namespace

void PrintSettings(const std::string &directory) {
  const std::vector<SettingsFile> files = LoadAll(directory);
  std::set<std::string> secrets;
  for (const SettingsFile &file : files) {
    for (const std::string &path : SecretPathsIn(file.text)) secrets.insert(daemon::FixedPath(path));
  }
  for (const SettingsFile &file : files) {
    const std::string &name = file.path.native();
    Print("== " + Escape(name) + "\n");
    if (!file.reason.empty() || secrets.contains(name)) {
      Print("(left out: " + (file.reason.empty() ? std::string("a setting names it for a secret") : file.reason) +
            ")\n");
    } else {
      Print(file.text + (file.text.ends_with('\n') ? "" : "\n"));
    }
  }
}

}  // namespace zor::ctl
