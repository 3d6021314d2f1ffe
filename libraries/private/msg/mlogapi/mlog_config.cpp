#include <zor/mlog.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/file_ptr.h"
#include "common/ascii.h"

namespace zor {
namespace {

constexpr char kShareKey[] = "[SHARE]";
constexpr std::size_t kShareKeyLength = sizeof kShareKey - 1;
constexpr int kLineSize = 1024;

}  // namespace
}  // namespace zor

int32_t mlog_use_share_partion(void) {
  const zor::FilePtr file(std::fopen("mlogcfg", "re"));
  if (file == nullptr) return 0;
  int32_t used = 0;
  char line[zor::kLineSize];
  while (std::fgets(line, sizeof line, file.get()) != nullptr) {
    if (!zor::StartsWithIgnoringCase(line, zor::kShareKey)) continue;
    const char *equals = std::strchr(line + zor::kShareKeyLength, '=');
    if (equals != nullptr) used = std::strtol(equals + 1, nullptr, 10) != 0 ? 1 : 0;
  }
  return used;
}
