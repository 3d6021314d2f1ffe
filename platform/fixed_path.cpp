#include <zor/platform/file.h>

#include <cstdlib>
#include <cstring>

namespace {

// A process with raised privileges must not let its caller move the system's files.
const char *Root() {
  const char *root = secure_getenv("ZOR_ROOT");
  return root == nullptr ? "" : root;
}

}  // namespace

size_t ZOR_UTIL_FixedPath(const char *path, char *out, size_t size) {
  if (out == nullptr || size == 0) return 0;
  out[0] = '\0';
  if (path == nullptr) return 0;
  const char *root = Root();
  const size_t rootLength = std::strlen(root);
  const size_t pathLength = std::strlen(path);
  if (rootLength >= size || pathLength >= size - rootLength) return 0;
  std::memcpy(out, root, rootLength);
  std::memcpy(out + rootLength, path, pathLength + 1);
  return rootLength + pathLength;
}
