#include "programs/types/json_walk.h"

#include <algorithm>
#include <utility>

namespace zor::types {
namespace {

// As a step of a JSON pointer is written.
std::string StepText(const std::string &name) {
  std::string text;
  for (const char each : name.substr(0, 64)) {
    if (each == '~') text += "~0";
    if (each == '/') text += "~1";
    if (each != '~' && each != '/') text += each;
  }
  return text;
}

}  // namespace

bool HasControls(std::string_view text) {
  char before = 0;
  return std::any_of(text.begin(), text.end(), [&before](char each) {
    const auto byte = static_cast<unsigned char>(each);
    const bool ofTwoBytes = std::exchange(before, each) == '\xc2' && byte < 0xa0;  // U+0080 to U+009F
    return byte < ' ' || byte == 0x7f || ofTwoBytes;
  });
}

std::string Problem::Text() const {
  return path + ":" + (pointer.empty() ? "" : pointer + ":") + " " + what;
}

Node Node::At(const nlohmann::json &value, const std::string &step) const {
  return {*walk_, value, pointer_ + "/" + StepText(step)};
}

bool Node::IsObject(std::initializer_list<std::string_view> known) const {
  if (!value_->is_object()) {
    Report("not an object");
    return false;
  }
  if (walk_->unknown == UnknownMembers::kSkip) return true;
  for (const auto &[name, value] : value_->items()) {
    if (name == "$comment" || std::find(known.begin(), known.end(), name) != known.end()) continue;
    At(value, name).Report("unknown member");
  }
  return true;
}

std::optional<Node> Node::Find(const std::string &name) const {
  const auto found = value_->find(name);
  if (found == value_->end()) return std::nullopt;
  return At(*found, name);
}

std::vector<Node> Node::Items(size_t most) const {
  std::vector<Node> items;
  if (!value_->is_array()) {
    Report("not an array");
  } else if (value_->size() > most) {
    Report("more than " + std::to_string(most) + " items");
  } else {
    for (size_t i = 0; i < value_->size(); ++i) items.push_back(At((*value_)[i], std::to_string(i)));
  }
  return items;
}

std::optional<std::string> Node::Text() const {
  if (!value_->is_string()) {
    Report("not a text");
    return std::nullopt;
  }
  const auto &text = value_->get_ref<const std::string &>();
  if (text.size() > kMaxTextBytes) {
    Report("longer than " + std::to_string(kMaxTextBytes) + " bytes");
  } else if (HasControls(text)) {
    Report("contains a control character");
  } else {
    return text;
  }
  return std::nullopt;
}

std::string Node::TextOf(const std::string &name) const {
  const std::optional<Node> member = Find(name);
  return member ? member->Text().value_or("") : "";
}

std::string Node::RequiredTextOf(const std::string &name) const {
  const std::optional<Node> member = Find(name);
  if (!member) {
    Report("no \"" + name + "\"");
    return {};
  }
  std::optional<std::string> text = member->Text();
  if (text && text->empty()) member->Report("empty");
  return text.value_or("");
}

}  // namespace zor::types
