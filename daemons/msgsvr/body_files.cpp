#include "msgsvr/body_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/paths.h>
#include <zor/platform/system.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "common/unique_fd.h"
#include "common/write_all.h"
#include "programs/capability.h"
#include "programs/limits.h"

namespace zor::msgsvr {
namespace {

// The file's name in the message directory; empty if the body names anything else.
std::string_view FileName(std::span<const std::byte> body) {
  constexpr std::string_view kDirectory = ZOR_PATH_MSG_FILE_DIR;
  const std::string_view path = TextOf(body);
  if (body.size() > ZOR_MSG_FILE_PATH_SIZE || path.size() == body.size()) return {};
  if (!path.starts_with(kDirectory)) return {};
  const std::string_view name = path.substr(kDirectory.size());
  if (name == "." || name == ".." || name.find('/') != name.npos) return {};
  return name;
}

std::span<const std::byte> BodyOf(std::span<const std::byte> frame) {
  return frame.subspan(ZOR_MSG_HEAD_SIZE);
}

bool HasBodyFile(std::span<const std::byte> frame) {
  uint32_t type;
  if (frame.size() < ZOR_MSG_HEAD_SIZE) return false;
  std::memcpy(&type, frame.data(), sizeof type);
  return (type & ZOR_MSG_BODY_IN_FILE) != 0;
}

}  // namespace

BodyFiles::BodyFiles(std::string directory)
    : directory_(std::move(directory)), gives_(daemon::HasCapability(CAP_CHOWN)) {}

const char *BodyFiles::Look(const Client &sender, const Frame &frame, SentFile &file) const {
  const std::string_view name = FileName(frame.body());
  if (!sender.peer.local || name.empty()) return "names no body file";
  return file.Look(PathOf(name), sender.peer.uid);
}

std::string BodyFiles::NameIn(std::span<const std::byte> frame) {
  return std::string(FileName(BodyOf(frame)));
}

bool BodyFiles::Exists(const std::string &name) const {
  return ::access(PathOf(name).c_str(), F_OK) == 0;
}

void BodyFiles::RemoveNamed(const std::string &name) const {
  ::unlink(PathOf(name).c_str());
}

void BodyFiles::RemoveBody(const Body &body) const {
  ::unlink(PathOf(FileName(body)).c_str());
}

std::vector<std::string> BodyFiles::OldFiles() const {
  constexpr std::string_view kPath = ZOR_PATH_MSG_FILE_FORMAT;
  constexpr std::string_view kStart = kPath.substr(kPath.rfind('/') + 1, kPath.find('%') - kPath.rfind('/') - 1);
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR *)> folder(::opendir(directory_.c_str()), ::closedir);
  if (folder == nullptr) return names;
  const std::time_t latest = std::time(nullptr) - static_cast<std::time_t>(limits::msgsvr::kBodyFileAge.count());
  while (const dirent *entry = ::readdir(folder.get())) {
    struct stat status = {};
    const std::string_view name = entry->d_name;
    if (!name.starts_with(kStart) || ::lstat(PathOf(name).c_str(), &status) != 0) continue;
    if (S_ISREG(status.st_mode) && status.st_mtime < latest) names.emplace_back(name);
  }
  return names;
}

void BodyFiles::RemoveOld(const std::string &name, Swept &swept) const {
  struct stat status = {};
  if (::lstat(PathOf(name).c_str(), &status) != 0 || ::unlink(PathOf(name).c_str()) != 0) return;
  ++swept.files;
  swept.bytes += static_cast<uint64_t>(status.st_size);
}

void BodyFiles::Remove(std::span<const std::byte> frame) const {
  if (HasBodyFile(frame)) ::unlink(PathOf(FileName(BodyOf(frame))).c_str());
}

// Nobody else opens it while it is filled: it is the server's until then.
template <typename Fill>
std::optional<BodyFiles::Body> BodyFiles::MakeFor(uid_t user, Fill fill) const {
  return MakeNamed([&](const char *path) {
    const UniqueFd file(::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR));
    if (!file.valid()) return false;
    if (fill(file.get()) && (!gives_ || ::fchown(file.get(), user, static_cast<gid_t>(-1)) == 0)) return true;
    const int error = errno;
    ::unlink(path);
    errno = error;
    return false;
  });
}

std::optional<BodyFiles::Body> BodyFiles::Create(std::span<const std::byte> content, uid_t user) const {
  return MakeFor(user, [&](int file) { return WriteAll(file, content); });
}

std::optional<BodyFiles::Body> BodyFiles::Copy(SentFile &file, uid_t user) const {
  return MakeFor(user, [&](int copy) { return file.CopyTo(copy); });
}

std::optional<BodyFiles::Body> BodyFiles::Link(std::span<const std::byte> frame) const {
  const FilePath from = PathOf(FileName(BodyOf(frame)));
  return MakeNamed([&](const char *to) { return ::link(from.c_str(), to) == 0; });
}

// Tries random names until `make` creates a file or fails for a reason other than that the name is taken. Returns the
// body that names the file.
template <typename Make>
std::optional<BodyFiles::Body> BodyFiles::MakeNamed(Make make) const {
  constexpr int kAttempts = 8;
  std::array<char, ZOR_MSG_FILE_PATH_SIZE> path{};
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::snprintf(path.data(), path.size(), ZOR_PATH_MSG_FILE_FORMAT, ZOR_UTIL_GenRandomInteger());
    Body body;
    std::memcpy(body.data(), path.data(), body.size());
    if (make(PathOf(FileName(body)).c_str())) return body;
    if (errno != EEXIST) break;
  }
  return std::nullopt;
}

}  // namespace zor::msgsvr
