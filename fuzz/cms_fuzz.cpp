// The configuration daemon's reader of paths: the input is the body of a request. Whatever it is, the path is below the
// root of the system, without "..", and no way of writing it leads into the daemon's own directory unnoticed.
#include <algorithm>
#include <filesystem>

#include "cms/requested_path.h"
#include "fuzz.h"
#include "support/temp_root.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  namespace fs = std::filesystem;
  using zor::fuzz::Require;
  static const zor::test::TempRoot root;
  static const fs::path own = root.Path("/cfg");
  static const bool isReady = fs::create_directories(own);
  Require(isReady, "the directory can be made");
  const std::string path = zor::cms::RequestedPath({reinterpret_cast<const char *>(data), size});
  if (path.empty()) return 0;
  Require(path.starts_with(root.Path("/")) && path.size() <= root.Path("").size() + size, "a path is below the root");
  const fs::path parts(path);
  Require(std::find(parts.begin(), parts.end(), "..") == parts.end(), "no path climbs");
  const bool leadsThere = parts.lexically_normal().parent_path() == own;
  Require(!leadsThere || zor::cms::IsIn(path, own), "a file in the directory is noticed");
  return 0;
}
