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

bool IsFileOf(const Client &sender, const struct stat &status) {
  return S_ISREG(status.st_mode) && status.st_uid == sender.peer.uid;
}

}  // namespace

BodyFiles::Path BodyFiles::PathOf(std::string_view name) const {
  Path path;
  std::snprintf(path.text_.data(), path.text_.size(), "%s%.*s", directory_.c_str(), static_cast<int>(name.size()),
                name.data());
  return path;
}

bool BodyFiles::BelongsTo(const Client &sender, const Frame &frame) const {
  const std::string_view name = FileName(frame.body());
  struct stat status = {};
  return sender.peer.local && !name.empty() && ::lstat(PathOf(name).c_str(), &status) == 0 && IsFileOf(sender, status);
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

std::optional<BodyFiles::Body> BodyFiles::Create(std::span<const std::byte> content) const {
  return MakeNamed([&](const char *path) {
    const UniqueFd file(::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.valid()) return false;
    if (WriteAll(file.get(), content)) return true;
    const int error = errno;
    ::unlink(path);
    errno = error;
    return false;
  });
}

std::optional<std::vector<std::byte>> BodyFiles::Duplicate(const Frame &frame) const {
  const Path from = PathOf(FileName(frame.body()));
  Frame copy = frame;
  copy.head.bodyLength = ZOR_MSG_FILE_PATH_SIZE;
  std::vector<std::byte> bytes(sizeof copy.head + copy.head.bodyLength);  // before there is a file to leave behind
  const auto body = MakeNamed([&](const char *to) { return ::link(from.c_str(), to) == 0; });
  if (!body) return std::nullopt;
  std::memcpy(bytes.data(), &copy.head, sizeof copy.head);
  std::memcpy(bytes.data() + sizeof copy.head, body->data(), body->size());
  return bytes;
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

std::optional<std::vector<std::byte>> BodyFiles::Read(const Client &sender, const Frame &frame, size_t maxBytes) const {
  const UniqueFd file(::open(PathOf(FileName(frame.body())).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0 || !IsFileOf(sender, status)) return std::nullopt;
  std::vector<std::byte> content(maxBytes);
  ssize_t count;
  do {
    count = ::read(file.get(), content.data(), content.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0) return std::nullopt;
  content.resize(static_cast<size_t>(count));
  return content;
}

}  // namespace zor::msgsvr
