#include "programs/state_file.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstring>

#include "common/write_all.h"

namespace zor::daemon {
namespace {

constexpr uint16_t kEndTag = 0;
constexpr std::string_view kMagic = "zorstate";

struct Head {
  char magic[8];
  uint32_t version;
  char server[16];
};
static_assert(kMagic.size() == sizeof Head::magic);

}  // namespace

StateWriter::StateWriter(std::string_view server, uint32_t version)
    : file_(::memfd_create("zor state", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
  Head head{};
  kMagic.copy(head.magic, sizeof head.magic);
  head.version = version;
  server.copy(head.server, sizeof head.server - 1);
  if (!file_.valid() || !WriteAll(file_.get(), std::as_bytes(std::span(&head, 1)))) Fail(errno);
}

void StateWriter::Write(bool complete) {
  if (error_ != 0) return;
  if (!complete) return Fail(EOVERFLOW);
  if (!WriteAll(file_.get(), buffer_)) Fail(errno);
}

void StateWriter::Fail(int error) {
  error_ = error;
  file_.reset();
}

UniqueFd StateWriter::Finish() {
  Add(kEndTag, std::string());
  errno = error_;
  return std::move(file_);
}

StateReader::StateReader(std::span<const std::byte> file, std::string_view server, uint32_t newestVersion) {
  Parse(file, server, newestVersion);
  if (!valid()) records_.clear();
}

void StateReader::Parse(std::span<const std::byte> file, std::string_view server, uint32_t newestVersion) {
  Head head{};
  if (file.size() >= sizeof head) std::memcpy(&head, file.data(), sizeof head);
  if (kMagic != std::string_view(head.magic, sizeof head.magic) || head.server[sizeof head.server - 1] != '\0' ||
      server != head.server) {
    problem_ = "the state is not that of " + std::string(server);
    return;
  }
  version_ = head.version;
  if (version_ == 0 || version_ > newestVersion) {
    problem_ =
        "the state has format version " + std::to_string(version_) + ", not 1 to " + std::to_string(newestVersion);
    return;
  }
  if (!ReadRecords(file.subspan(sizeof head))) problem_ = "the state is damaged";
}

bool StateReader::ReadRecords(std::span<const std::byte> bytes) {
  while (const auto field = TakeField(bytes)) {
    if (field->tag == kEndTag) return bytes.empty();
    records_.push_back(*field);
  }
  return false;
}

}  // namespace zor::daemon
