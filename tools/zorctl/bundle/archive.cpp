#include "zorctl/bundle/archive.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "common/unique_fd.h"
#include "zorctl/bundle/piece_process.h"
#include "zorctl/exit_code.h"
#include "zorctl/output.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

constexpr char kTop[] = "zor-bundle";

struct Ending {
  std::string_view text;
  const char *compression;  // an option of tar
};

constexpr std::array kEndings = {Ending{".tar.gz", "--gzip"}, Ending{".tgz", "--gzip"}, Ending{".tar.zst", "--zstd"}};

const char *CompressionOf(const std::string &path) {
  for (const Ending &ending : kEndings) {
    if (path.ends_with(ending.text)) return ending.compression;
  }
  throw Failure(kExitUsage, "not the name of an archive: " + Escape(path), "end it with .tar.gz or .tar.zst");
}

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

}  // namespace

Archive::Archive(std::string path) : path_(std::move(path)), compression_(CompressionOf(path_)) {
  ::umask(S_IRWXG | S_IRWXO);
  std::string pattern = path_ + ".XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) Fail(std::strerror(errno));
  work_ = pattern;
  content_ = work_ + "/" + kTop;
  if (::mkdir(content_.c_str(), S_IRWXU) != 0) {
    const int error = errno;
    ::rmdir(work_.c_str());
    Fail(std::strerror(error));
  }
}

Archive::~Archive() {
  std::error_code ignored;
  if (!work_.empty()) std::filesystem::remove_all(work_, ignored);
}

void Archive::Add(const std::string &name, std::string_view bytes) {
  const UniqueFd file(
      ::open((content_ + "/" + name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!file.valid() || !WriteAll(file.get(), bytes)) Fail(std::strerror(errno));
}

void Archive::Finish(const Deadline &deadline) {
  const std::string packed = work_ + "/packed";
  const PieceResult result = RunPiece(
      [&] {
        ::execlp("tar", "tar", "--create", compression_, "--file", packed.c_str(), "--directory", work_.c_str(),
                 "--owner=0", "--group=0", "--numeric-owner", kTop, static_cast<char *>(nullptr));
        throw Failure(kExitFailure, std::string("tar: ") + std::strerror(errno), "");
      },
      deadline, 4096);
  if (result.failed) Fail(result.problem);
  const UniqueFd file(::open(packed.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.valid() || ::fsync(file.get()) != 0 || ::rename(packed.c_str(), path_.c_str()) != 0) {
    Fail(std::strerror(errno));
  }
}

void Archive::Fail(const std::string &why) const {
  throw Failure(kExitFailure, "cannot write " + Escape(path_) + ": " + why,
                "nothing is left there; give a directory with room, or a smaller --limit");
}

}  // namespace zor::ctl
