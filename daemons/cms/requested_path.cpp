#include "cms/requested_path.h"

#include <zor/limits.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "programs/paths.h"

namespace zor::cms {

namespace fs = std::filesystem;

std::string RequestedPath(std::span<const char> body) {
  const auto end = std::find(body.begin(), body.end(), '\0');
  if (end == body.end() || end - body.begin() >= ZOR_CFG_PATH_SIZE) return {};
  const std::string path(body.begin(), end);
  const fs::path parts(path);
  const bool climbs = std::find(parts.begin(), parts.end(), "..") != parts.end();
  return path.starts_with('/') && !climbs ? daemon::FixedPath(path) : std::string();
}

bool IsIn(const std::string &path, const std::string &directory) {
  const fs::path parent = fs::path(path).parent_path();
  std::error_code error;
  const bool same = fs::equivalent(parent, directory, error);
  return same || (error && error != std::errc::no_such_file_or_directory);
}

}  // namespace zor::cms
