#include "programs/types/book.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/ascii.h"
#include "programs/format_number.h"
#include "programs/paths.h"
#include "programs/types/own_types.h"
#include "programs/types/type_reader.h"

namespace zor::types {
namespace {

constexpr std::string_view kPrefixes[] = {"ZOR_MSG_", "ZOR_"};
constexpr std::string_view kSuffix = ".json";
constexpr size_t kMaxFiles = 256;

struct FolderCloser {
  void operator()(DIR *folder) const { ::closedir(folder); }
};

// The first of ours with a number in the range.
const Type *FindOwn(uint32_t first, uint32_t last) {
  const std::vector<Type> &types = OwnTypes();
  const auto found =
      std::partition_point(types.begin(), types.end(), [=](const Type &each) { return each.last < first; });
  return found == types.end() || last < found->first ? nullptr : &*found;
}

bool IsNamed(const Type &type, std::string_view name) {
  if (EqualIgnoringCase(type.name, name) || EqualIgnoringCase(type.fullName(), name)) return true;
  const std::string_view own = type.name;
  return type.nameSpace == kOwnNamespace &&
         std::any_of(std::begin(kPrefixes), std::end(kPrefixes), [&](std::string_view prefix) {
           return own.starts_with(prefix) && EqualIgnoringCase(own.substr(prefix.size()), name);
         });
}

// Events of one module share a number.
bool AreEventsApart(const Type &a, const Type &b) {
  return a.kind == Kind::kEvent && b.kind == Kind::kEvent && !a.event.empty() && !b.event.empty() && a.event != b.event;
}

}  // namespace

TypeBook &TypeBook::Installed() {
  static TypeBook book(Source::kInstalled);
  return book;
}

void TypeBook::Load() {
  if (loaded_) return;
  loaded_ = true;
  AddFolder(daemon::FixedPath(kTypesFolder));
  const char *own = ::secure_getenv(kTypesVariable);
  std::string_view folders = own == nullptr ? "" : own;
  while (!folders.empty()) {
    const size_t end = std::min(folders.find(':'), folders.size());
    if (end > 0) AddFolder(std::string(folders.substr(0, end)));
    folders.remove_prefix(std::min(end + 1, folders.size()));
  }
  std::string latest;
  for (const Problem &problem : problems_) {
    if (problem.path != latest) std::fprintf(stderr, "%s; see zorctl types lint\n", problem.Text().c_str());
    latest = problem.path;
  }
}

void TypeBook::AddFolder(const std::string &path) {
  const std::unique_ptr<DIR, FolderCloser> folder(::opendir(path.c_str()));
  if (folder == nullptr) {
    if (errno != ENOENT) problems_.push_back({path, "", std::strerror(errno)});
    return;
  }
  std::vector<std::string> names;
  while (const dirent *entry = ::readdir(folder.get())) {
    const std::string name = entry->d_name;
    if (name.ends_with(kSuffix) && name.front() != '.' && name != kOwnFile) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  if (names.size() > kMaxFiles) {
    problems_.push_back({path, "", "more than " + std::to_string(kMaxFiles) + " files; the others are skipped"});
    names.resize(kMaxFiles);
  }
  for (const std::string &name : names) {
    if (auto file = ReadTypeFile(std::string(path).append("/").append(name), UnknownMembers::kSkip, problems_))
      Add(std::move(*file));
  }
}

void TypeBook::Add(TypeFile file) {
  AddModules(file);
  TypeFile &kept = files_.emplace_back(std::move(file));
  AddTypes(kept);
}

void TypeBook::AddModules(TypeFile &file) {
  std::erase_if(file.modules, [&](const Module &module) {
    const bool taken = std::any_of(files_.begin(), files_.end(), [&](const TypeFile &each) {
      return std::any_of(each.modules.begin(), each.modules.end(), [&](const Module &other) {
        return (other.name == module.name) != (other.type == module.type);
      });
    });
    if (taken) {
      problems_.push_back(
          {file.path, "",
           "module \"" + module.name + "\" or its type, " + daemon::HexText(module.type) + ", is another vendor's"});
    }
    return taken;
  });
}

void TypeBook::AddTypes(TypeFile &file) {
  for (const Type &type : file.types) {
    const Type *other = type.kind == Kind::kEvent ? nullptr : FindOwn(type.first, type.last);
    for (auto each = added_.begin(); other == nullptr && each != added_.end() && each->first <= type.last; ++each) {
      const bool meets = each->second->last >= type.first && !AreEventsApart(*each->second, type);
      if (meets) other = each->second;
    }
    if (other == nullptr) {
      added_.emplace(type.first, &type);
      continue;
    }
    problems_.push_back({file.path, "/types/" + std::to_string(&type - file.types.data()),
                         daemon::HexText(type.first) + " is " + other->fullName() + " already"});
  }
}

const Type *TypeBook::FindAdded(uint32_t type) const {
  auto found = added_.upper_bound(type);
  if (found == added_.begin()) return nullptr;
  --found;
  return found->second->last >= type ? found->second : nullptr;
}

const Type *TypeBook::Find(uint32_t type) {
  if (const Type *own = FindOwn(type, type)) return own;
  Load();
  const Type *added = FindAdded(type);
  return added == nullptr || added->kind == Kind::kEvent ? nullptr : added;
}

const Type *TypeBook::FindEvent(uint32_t type, std::string_view event) {
  Load();
  const auto [first, last] = added_.equal_range(type);
  const auto found = std::find_if(first, last, [&](const auto &each) { return each.second->event == event; });
  return found == last ? nullptr : found->second;
}

std::vector<const Type *> TypeBook::Named(std::string_view name) {
  std::vector<const Type *> named;
  for (const Type &type : OwnTypes()) {
    if (IsNamed(type, name)) return {&type};
  }
  Load();
  for (const auto &[first, type] : added_) {
    if (IsNamed(*type, name)) named.push_back(type);
  }
  return named;
}

std::vector<const Type *> TypeBook::AllOf(uint32_t type) {
  Load();
  std::vector<const Type *> all;
  for (const auto &[first, each] : added_) {
    if (type >= each->first && type <= each->last) all.push_back(each);
  }
  if (const Type *own = FindOwn(type, type)) all.push_back(own);
  return all;
}

const Module *TypeBook::FindModule(std::string_view name) {
  Load();
  for (const TypeFile &file : files_) {
    for (const Module &module : file.modules) {
      if (module.name == name) return &module;
    }
  }
  return nullptr;
}

const Module *TypeBook::FindModule(uint32_t type) {
  Load();
  for (const TypeFile &file : files_) {
    for (const Module &module : file.modules) {
      if (module.type == type) return &module;
    }
  }
  return nullptr;
}

std::vector<const Type *> TypeBook::All() {
  Load();
  std::vector<const Type *> all;
  for (const Type &type : OwnTypes()) all.push_back(&type);
  for (const auto &[first, type] : added_) all.push_back(type);
  return all;
}

const std::deque<TypeFile> &TypeBook::Files() {
  Load();
  return files_;
}

}  // namespace zor::types
