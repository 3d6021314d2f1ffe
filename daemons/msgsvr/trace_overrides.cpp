#include "msgsvr/trace_overrides.h"

#include <zor/platform/file.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>

#include "common/malloc_ptr.h"
#include "programs/files.h"
#include "programs/limits.h"
#include "programs/paths.h"

namespace zor::msgsvr {
namespace {

// Members set in `over` replace those of `under`.
TraceMembers Merge(TraceMembers under, const TraceMembers &over) {
  if (over.output) under.output = over.output;
  if (over.fileKiB) under.fileKiB = over.fileKiB;
  if (over.levels) under.levels = over.levels;
  return under;
}

// Parses the whole text; null if it is malformed.
daemon::Json Parse(std::string_view text) {
  const char *end = nullptr;
  daemon::Json value(cJSON_ParseWithLengthOpts(text.data(), text.size(), &end, 0));
  if (value == nullptr) return nullptr;
  const std::string_view rest = text.substr(static_cast<size_t>(end - text.data()));
  return rest.find_first_not_of(" \t\r\n") == rest.npos ? std::move(value) : nullptr;
}

// One daemon per line.
std::optional<std::string> FileText(const std::map<std::string, TraceMembers> &byName) {
  std::string text = "[";
  for (const auto &[name, members] : byName) {
    const std::string object = daemon::JsonText(TraceToJson({name, members}).get());
    if (object.empty()) return std::nullopt;
    text += text.size() == 1 ? "\n" : ",\n";
    text += object;
  }
  return text + "\n]\n";
}

}  // namespace

TraceOverrides::TraceOverrides(std::string fixedPath, daemon::ProblemLog &log)
    : fixedPath_(std::move(fixedPath)), log_(log) {
  Load();
}

TraceOverrides::Result TraceOverrides::Set(std::string_view json) {
  const auto trace = TraceFromJson(Parse(json).get());
  if (!trace) return Result::kMalformed;
  ByName changed = byName_;
  TraceMembers &members = changed[trace->name];
  members = Merge(members, trace->members);
  return changed.size() > limits::msgsvr::kTraceNames ? Result::kFailed : Save(std::move(changed));
}

TraceOverrides::Result TraceOverrides::Clear(const AppName &name) {
  ByName changed = byName_;
  if (name.empty()) {
    changed.clear();
  } else {
    changed.erase(std::string(name.text()));
  }
  return changed.size() == byName_.size() ? Result::kDone : Save(std::move(changed));
}

TraceMembers TraceOverrides::Of(const AppName &daemon) const {
  TraceMembers members;
  for (const std::string &name : {std::string("*"), std::string(daemon.text())}) {
    const auto entry = byName_.find(name);
    if (entry != byName_.end()) members = Merge(members, entry->second);
  }
  return members;
}

void TraceOverrides::Load() {
  const std::string path = daemon::FixedPath(fixedPath_);
  void *block = nullptr;
  uint32_t length = 0;
  errno = 0;
  const uint32_t status = ZOR_UTIL_ReadFileToBuf(path.c_str(), &block, &length);
  const MallocPtr<void> owner(block);
  if (status != ZOR_FILE_OK && errno == ENOENT) return;
  if (status != ZOR_FILE_OK && errno != 0) {
    mayReplaceFile_ = false;
    return log_.PrintErrno("%s: cannot be read, will not be replaced", fixedPath_.c_str());
  }
  const daemon::Json array(
      length <= limits::msgsvr::kTraceOverridesFile ? Parse({static_cast<const char *>(block), length}) : nullptr);
  ByName found;
  bool intact = cJSON_IsArray(array.get()) != 0;
  const cJSON *item = nullptr;
  cJSON_ArrayForEach(item, array.get()) {
    const auto trace = TraceFromJson(item);
    intact = intact && trace && found.size() < limits::msgsvr::kTraceNames &&
             found.emplace(trace->name, trace->members).second;
  }
  if (intact) {
    byName_ = std::move(found);
    return;
  }
  log_.Print("%s: damaged, set aside as %s.damaged", fixedPath_.c_str(), fixedPath_.c_str());
  mayReplaceFile_ = std::rename(path.c_str(), (path + ".damaged").c_str()) == 0;
  if (!mayReplaceFile_) log_.PrintErrno("%s", fixedPath_.c_str());
}

TraceOverrides::Result TraceOverrides::Save(ByName changed) {
  const auto text = FileText(changed);
  if (!text || !mayReplaceFile_) return Result::kFailed;
  if (!daemon::MakeDirectory(daemon::ParentOf(fixedPath_) + "/") ||
      !daemon::ReplaceFile(daemon::FixedPath(fixedPath_), std::as_bytes(std::span(*text)))) {
    log_.PrintErrno("%s: cannot be written, trace overrides are unchanged", fixedPath_.c_str());
    return Result::kFailed;
  }
  byName_ = std::move(changed);
  return Result::kDone;
}

}  // namespace zor::msgsvr
