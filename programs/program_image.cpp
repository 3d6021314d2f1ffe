#include "programs/program_image.h"

#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <filesystem>
#include <system_error>

namespace zor::daemon {
namespace {

namespace fs = std::filesystem;

constexpr char kOwnProgram[] = "/proc/self/exe";
constexpr int kMostLinks = 40;  // as the kernel's own limit

std::string OwnPath() {
  std::array<char, PATH_MAX> text;
  const ssize_t length = ::readlink(kOwnProgram, text.data(), text.size());
  return length > 0 && static_cast<size_t>(length) < text.size() ? std::string(text.data(), static_cast<size_t>(length))
                                                                 : "";
}

// Whether only root and this user can replace or change it. In a sticky directory others can change only their own.
bool IsOurs(const struct stat &status) {
  if (status.st_uid != 0 && status.st_uid != ::geteuid()) return false;
  if (S_ISLNK(status.st_mode) || (S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0)) return true;
  return (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Whether that holds for each part of an absolute path, and of those that links in it lead to.
bool IsGuarded(const fs::path &path, int links = 0) {
  fs::path at;
  for (auto part = path.begin(); part != path.end(); ++part) {
    const fs::path before = at;
    at /= *part;
    struct stat status = {};
    if (::lstat(at.c_str(), &status) != 0 || !IsOurs(status)) return false;
    if (!S_ISLNK(status.st_mode)) continue;
    std::error_code error;
    fs::path target = before / fs::read_symlink(at, error);
    for (++part; part != path.end(); ++part) target /= *part;
    return !error && links < kMostLinks && IsGuarded(target, links + 1);
  }
  return true;
}

// The path that was executed; empty if it must not be executed again.
std::string StartedPath() {
  const unsigned long address = ::getauxval(AT_EXECFN);
  if (address == 0 || ::getauxval(AT_SECURE) != 0) return {};
  const std::string path = reinterpret_cast<const char *>(address);  // NOLINT: the kernel passes it as a number
  struct stat started = {};
  struct stat own = {};
  const bool isOwn = path.starts_with('/') && ::stat(path.c_str(), &started) == 0 && ::stat(kOwnProgram, &own) == 0 &&
                     started.st_dev == own.st_dev && started.st_ino == own.st_ino;
  return isOwn && IsGuarded(path) ? path : "";
}

}  // namespace

ProgramImage::ProgramImage(char **commandLine) : path(StartedPath()), arguments(commandLine) {
  if (path.empty()) path = OwnPath();
}

}  // namespace zor::daemon
