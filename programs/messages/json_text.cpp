#include "programs/messages/json_text.h"

#include <array>
#include <nlohmann/json.hpp>

namespace zor::messages {
namespace {

using Json = nlohmann::ordered_json;

// Sees each part of a text before it is stored, and ends the reading of one that goes beyond the bounds.
class Bounds {
 public:
  bool Allow(int depth, Json::parse_event_t event) {
    const auto level = static_cast<std::size_t>(depth);
    if (level > kMaxJsonDepth) return kept_ = false;
    if (event == Json::parse_event_t::object_start) members_[level + 1] = 0;
    if (event == Json::parse_event_t::key && ++members_[level] > kMaxJsonMembers) kept_ = false;
    return kept_;
  }
  bool kept() const { return kept_; }

 private:
  std::array<std::size_t, kMaxJsonDepth + 2> members_{};
  bool kept_ = true;
};

}  // namespace

nlohmann::ordered_json ParseJson(std::string_view text) {
  Bounds bounds;
  const auto check = [&bounds](int depth, Json::parse_event_t event, Json &) { return bounds.Allow(depth, event); };
  Json value = Json::parse(text, check, false);
  return bounds.kept() ? value : Json(Json::value_t::discarded);
}

std::string JsonText(const nlohmann::ordered_json &value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string JsonString(std::string_view text) {
  return JsonText(text);
}

std::string JsonMembers(const nlohmann::ordered_json &object) {
  const std::string text = JsonText(object);
  return text.substr(1, text.size() - 2);
}

}  // namespace zor::messages
