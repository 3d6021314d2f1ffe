// A JSON value of a type file together with its place: whatever is wrong with it is reported with a pointer to it.
#ifndef PROGRAMS_TYPES_JSON_WALK_H
#define PROGRAMS_TYPES_JSON_WALK_H

#include <cstddef>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/types/reader.h"

namespace zor::types {

// What all nodes of a file share.
struct Walk {
  const std::string &path;
  UnknownMembers unknown;
  std::vector<Problem> &problems;
};

// Whether the text, which is UTF-8, has characters that a terminal would obey.
bool HasControls(std::string_view text);

class Node {
 public:
  Node(Walk &walk, const nlohmann::json &value, std::string pointer)
      : walk_(&walk), value_(&value), pointer_(std::move(pointer)) {}

  const nlohmann::json &value() const { return *value_; }
  void Report(const std::string &what) const { walk_->problems.push_back({walk_->path, pointer_, what}); }

  // Whether the value is an object; reports members that are not among these. "$comment" may be anywhere.
  bool IsObject(std::initializer_list<std::string_view> known) const;
  // No value if there is no such member.
  std::optional<Node> Find(const std::string &name) const;
  // The items; reports a value that is no array, or too long.
  std::vector<Node> Items(size_t most) const;
  // The text; reports any other value, one that is too long and one with control characters.
  std::optional<std::string> Text() const;

  // The text of a member, empty without one.
  std::string TextOf(const std::string &name) const;
  // The same, but reports a missing member.
  std::string RequiredTextOf(const std::string &name) const;

 private:
  Node At(const nlohmann::json &value, const std::string &step) const;

  Walk *walk_;
  const nlohmann::json *value_;
  std::string pointer_;
};

}  // namespace zor::types

#endif
