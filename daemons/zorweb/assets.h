// The files of the page, which are part of this program.
#ifndef ZORWEB_ASSETS_H
#define ZORWEB_ASSETS_H

#include <string_view>

namespace zor::web {

struct Asset {
  std::string_view name;  // "index.html"
  std::string_view type;  // of its content
  std::string_view content;
};

// Null if there is none of that name.
const Asset *FindAsset(std::string_view name);

}  // namespace zor::web

#endif
