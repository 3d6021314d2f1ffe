#include "cms/export_files.h"

#include <zor/config_wire.h>
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "cms/open_file.h"
#include "cms/seal_process.h"
#include "programs/files.h"
#include "programs/limits.h"
#include "programs/paths.h"

namespace zor::cms {
namespace {

namespace fs = std::filesystem;

constexpr size_t kMostFile = kSealHeadSize + limits::cms::kExportBytes + kSealTagSize;

uint32_t StatusOf(Unsealed result) {
  switch (result) {
    case Unsealed::kGood:
      return ZOR_STORE_OK;
    case Unsealed::kUnknown:
      return ZOR_CFG_E_FORMAT;
    case Unsealed::kNotAuthentic:
      return ZOR_CFG_E_NOT_AUTHENTIC;
    case Unsealed::kNoCrypto:
      return ZOR_CFG_E_NO_CRYPTO;
    case Unsealed::kNoMemory:
      break;
  }
  return ZOR_STORE_E_NO_MEMORY;
}

// A file that is there for the lifetime of the object, at most.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string &fixedPath) : path_(daemon::FixedPath(fixedPath)) {}
  ScratchFile(const ScratchFile &) = delete;
  ScratchFile &operator=(const ScratchFile &) = delete;
  ~ScratchFile() {
    std::error_code ignored;  // what stays is removed by the next one, at the latest at the next start
    fs::remove(path_, ignored);
  }
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

bool BeginsSealed(const OpenFile &file) {
  std::array<std::byte, kSealHeadSize> start{};
  return file.ReadStart(start) && IsSealed(start);
}

}  // namespace

uint32_t ExportFiles::Seal(const std::string &target,
                           const std::function<uint32_t(const std::string &path)> &write) const {
  if (const uint32_t status = CheckTarget(target); status != ZOR_STORE_OK) return status;
  Secret passphrase;
  if (const uint32_t status = ReadPassphrase(&passphrase); status != ZOR_STORE_OK) return status;
  const ScratchFile scratch(scratch_);
  if (const uint32_t status = write(scratch.path()); status != ZOR_STORE_OK) return status;
  Secret content;
  const OpenFile file(scratch.path());
  if (!file.valid()) return ZOR_STORE_E_IO;
  if (!file.ReadAll(limits::cms::kExportBytes, &content)) return ZOR_STORE_E_NO_MEMORY;
  const auto head = MakeSealHead(rules_.keyCost);
  if (!head) return ZOR_STORE_E_NO_MEMORY;
  std::vector<std::byte> sealed;
  if (const Unsealed result = SealApart(*head, content, passphrase, &sealed); result != Unsealed::kGood)
    return StatusOf(result);
  return daemon::ReplaceFile(target, sealed) ? ZOR_STORE_OK : ZOR_STORE_E_IO;
}

uint32_t ExportFiles::Open(const std::string &source,
                           const std::function<uint32_t(const std::string &path)> &use) const {
  const OpenFile file(source);
  if (!file.valid()) return errno == ENOENT ? ZOR_STORE_E_NOT_FOUND : ZOR_STORE_E_IO;
  if (!BeginsSealed(file)) {
    const uint32_t status = CheckPlainImport();
    return status == ZOR_STORE_OK ? use(source) : status;
  }
  Secret bytes;
  return file.ReadAll(kMostFile, &bytes) ? OpenSealed(bytes, use) : ZOR_CFG_E_FORMAT;
}

uint32_t ExportFiles::OpenSealed(std::span<const std::byte> file,
                                 const std::function<uint32_t(const std::string &path)> &use) const {
  Secret passphrase;
  if (const uint32_t status = ReadPassphrase(&passphrase); status != ZOR_STORE_OK) return status;
  Secret content;
  if (const Unsealed result = UnsealApart(file, passphrase, &content); result != Unsealed::kGood)
    return StatusOf(result);
  const ScratchFile scratch(scratch_);
  return daemon::ReplaceFile(scratch.path(), content) ? use(scratch.path()) : ZOR_STORE_E_IO;
}

uint32_t ExportFiles::CheckTarget(const std::string &target) {
  const OpenFile file(target);
  if (file.valid() && BeginsSealed(file)) return ZOR_STORE_OK;
  const uint32_t status = ZOR_STORE_CheckFile(target.c_str());
  return status == ZOR_STORE_E_NOT_FOUND ? ZOR_STORE_OK : status;
}

void ExportFiles::RemoveScratch() const {
  const ScratchFile left(scratch_);
}

uint32_t ExportFiles::ReadPassphrase(Secret *passphrase) const {
  return passphrase_.Read(passphrase) == PassphraseFile::Result::kFound ? ZOR_STORE_OK : ZOR_CFG_E_NO_PASSPHRASE;
}

// A passphrase that cannot be used was meant to protect all the same.
uint32_t ExportFiles::CheckPlainImport() const {
  if (rules_.plainImport == PlainImport::kAlways) return ZOR_STORE_OK;
  Secret passphrase;
  const bool mayBePlain = rules_.plainImport == PlainImport::kWithoutPassphrase &&
                          passphrase_.Read(&passphrase) == PassphraseFile::Result::kMissing;
  return mayBePlain ? ZOR_STORE_OK : ZOR_CFG_E_NOT_ENCRYPTED;
}

}  // namespace zor::cms
