// What a bundle is made of.
#ifndef ZORCTL_BUNDLE_PIECES_H
#define ZORCTL_BUNDLE_PIECES_H

#include <functional>
#include <string>
#include <vector>

namespace zor::ctl {

struct Piece {
  std::string name;  // of the file in the bundle
  std::function<void()> make;
  bool isBinary = false;  // masked where it is made
};

// The most important ones first, since they are what a small limit leaves.
std::vector<Piece> BundlePieces();

// What no bundle has, a line each, for the manifest.
std::string NeverIncluded();

}  // namespace zor::ctl

#endif
