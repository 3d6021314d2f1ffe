#include "zorweb/assets.h"

#include <algorithm>
#include <iterator>

namespace zor::web {
namespace {

constexpr Asset kAssets[] = {
#include "zorweb_assets.inc"
};

}  // namespace

const Asset *FindAsset(std::string_view name) {
  const auto *found =
      std::find_if(std::begin(kAssets), std::end(kAssets), [name](const Asset &each) { return each.name == name; });
  return found == std::end(kAssets) ? nullptr : found;
}

}  // namespace zor::web
