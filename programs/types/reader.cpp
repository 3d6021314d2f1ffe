#include "programs/types/reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>

#include "common/unique_fd.h"
#include "programs/format_number.h"
#include "programs/types/field_reader.h"
#include "programs/types/json_walk.h"
#include "programs/types/type_reader.h"

namespace zor::types {
namespace {

using Json = nlohmann::json;

constexpr int kMaxDepth = 32;
constexpr size_t kMaxNameBytes = 32;

std::string PlaceText(std::string_view text, size_t byte) {
  const std::string_view before = text.substr(0, byte == 0 ? 0 : byte - 1);
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  const size_t start = before.rfind('\n');
  const size_t column = before.size() - (start == before.npos ? 0 : start + 1) + 1;
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

// A member given twice would otherwise hide the first one.
class Bounds {
 public:
  bool Allow(int depth, Json::parse_event_t event, const Json &parsed) {
    if (depth > kMaxDepth) tooDeep = true;
    const auto level = static_cast<size_t>(depth);
    if (event == Json::parse_event_t::object_start) names_[level + 1].clear();
    if (event == Json::parse_event_t::key && !tooDeep) {
      const auto &name = parsed.get_ref<const std::string &>();
      auto &names = names_[level];
      if (!names.emplace(name, true).second && twice.empty()) twice = HasControls(name) ? "?" : name;
    }
    return !tooDeep;
  }

  bool tooDeep = false;
  std::string twice;

 private:
  std::map<size_t, std::map<std::string, bool>> names_;
};

// Discarded, with a problem, if the text is not JSON within the bounds.
Json ParseText(std::string_view text, const std::string &path, std::vector<Problem> &problems) {
  Bounds bounds;
  const auto check = [&](int depth, Json::parse_event_t event, Json &parsed) {
    return bounds.Allow(depth, event, parsed);
  };
  Json value(Json::value_t::discarded);
  try {
    value = Json::parse(text, check);
  } catch (const Json::parse_error &error) {
    problems.push_back({path, "", "not JSON in UTF-8: " + PlaceText(text, error.byte)});
    return Json(Json::value_t::discarded);
  } catch (const Json::exception &) {
    problems.push_back({path, "", "a number that is too large"});
    return Json(Json::value_t::discarded);
  }
  if (bounds.tooDeep) problems.push_back({path, "", "nested more than " + std::to_string(kMaxDepth) + " levels deep"});
  if (!bounds.twice.empty()) problems.push_back({path, "", "a member given twice: \"" + bounds.twice + "\""});
  return bounds.tooDeep || !bounds.twice.empty() ? Json(Json::value_t::discarded) : value;
}

Module ReadModule(const Node &node) {
  Module module;
  if (!node.IsObject({"name", "type", "meaning"})) return module;
  module.name = node.RequiredTextOf("name");
  module.meaning = node.TextOf("meaning");
  const std::optional<Node> type = node.Find("type");
  if (!type) {
    node.Report("no \"type\"");
  } else if (const auto number = ReadNumber(*type)) {
    module.type = *number;
    if (!IsEventType(*number)) type->Report("the type of an event lies between 0x2DA00 and 0x2DAFF");
  }
  return module;
}

// Two types may share a number only as events of one module with different names.
bool MayShare(const Type &a, const Type &b) {
  return a.kind == Kind::kEvent && b.kind == Kind::kEvent && !a.event.empty() && !b.event.empty() && a.event != b.event;
}

void CheckTypes(const std::vector<Node> &nodes, const std::vector<Type> &types) {
  std::map<std::string, size_t> names;
  std::multimap<uint32_t, size_t> ends;  // by their last number
  for (size_t i = 0; i < types.size(); ++i) {
    const Type &type = types[i];
    if (!type.name.empty() && !names.emplace(type.name, i).second)
      nodes[i].Report("a second type \"" + type.name + "\"");
    for (auto each = ends.lower_bound(type.first); each != ends.end(); ++each) {
      const Type &other = types[each->second];
      if (other.first > type.last || MayShare(type, other)) continue;
      nodes[i].Report("has a number of \"" + other.name + "\", " + daemon::HexText(std::max(type.first, other.first)));
      break;
    }
    ends.emplace(type.last, i);
  }
}

void CheckModules(const std::vector<Node> &nodes, const std::vector<Module> &modules) {
  for (size_t i = 0; i < modules.size(); ++i) {
    const auto isSame = [&](const Module &each) {
      return each.name == modules[i].name || each.type == modules[i].type;
    };
    const auto end = modules.begin() + static_cast<std::ptrdiff_t>(i);
    if (std::any_of(modules.begin(), end, isSame)) nodes[i].Report("another module has its name or its type");
  }
}

void ReadHead(const Node &root, TypeFile &file) {
  const std::optional<Node> schema = root.Find("schema");
  if (!schema) root.Report("no \"schema\"");
  if (schema && schema->value() != 1) schema->Report("not 1, the only schema that is known");
  file.vendor = root.RequiredTextOf("vendor");
  file.nameSpace = root.RequiredTextOf("namespace");
  const bool valid = IsIdentifier(file.nameSpace) && file.nameSpace.size() <= kMaxNameBytes;
  if (!file.nameSpace.empty() && !valid) {
    root.Find("namespace")->Report("not 1 to 32 letters, digits and _, a letter first");
  }
}

TypeFile ReadRoot(const Node &root) {
  TypeFile file;
  if (!root.IsObject({"$schema", "schema", "vendor", "namespace", "meaning", "modules", "types"})) return file;
  ReadHead(root, file);
  if (const std::optional<Node> modules = root.Find("modules")) {
    const std::vector<Node> nodes = modules->Items(kMaxModules);
    for (const Node &node : nodes) file.modules.push_back(ReadModule(node));
    CheckModules(nodes, file.modules);
  }
  if (const std::optional<Node> types = root.Find("types")) {
    const std::vector<Node> nodes = types->Items(kMaxTypes);
    for (const Node &node : nodes) file.types.push_back(ReadType(node, file));
    CheckTypes(nodes, file.types);
  }
  return file;
}

// No value, with errno, if the file cannot be read. One byte more than the limit for a file that is too long.
std::optional<std::string> ReadBytes(const std::string &path) {
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status = {};
  if (fd.get() < 0 || ::fstat(fd.get(), &status) != 0) return std::nullopt;
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;  // a pipe would make the reader wait
    return std::nullopt;
  }
  std::string bytes(kMaxFileBytes + 1, '\0');
  size_t used = 0;
  while (used < bytes.size()) {
    const ssize_t count = ::read(fd.get(), bytes.data() + used, bytes.size() - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    used += static_cast<size_t>(count);
  }
  bytes.resize(used);
  return bytes;
}

}  // namespace

std::optional<TypeFile> ParseTypeFile(const std::string &path, std::string_view text, UnknownMembers unknown,
                                      std::vector<Problem> &problems) {
  const size_t before = problems.size();
  if (text.size() > kMaxFileBytes) {
    problems.push_back({path, "", "larger than " + std::to_string(kMaxFileBytes) + " bytes"});
    return std::nullopt;
  }
  const Json value = ParseText(text, path, problems);
  if (value.is_discarded()) return std::nullopt;
  Walk walk{path, unknown, problems};
  TypeFile file = ReadRoot(Node(walk, value, ""));
  file.path = path;
  return problems.size() == before ? std::optional(std::move(file)) : std::nullopt;
}

std::optional<TypeFile> ReadTypeFile(const std::string &path, UnknownMembers unknown, std::vector<Problem> &problems) {
  const std::optional<std::string> text = ReadBytes(path);
  if (text) return ParseTypeFile(path, *text, unknown, problems);
  problems.push_back({path, "", errno == EINVAL ? "not a regular file" : std::strerror(errno)});
  return std::nullopt;
}

}  // namespace zor::types
