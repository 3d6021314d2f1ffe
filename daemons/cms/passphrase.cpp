#include "cms/passphrase.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "cms/open_file.h"
#include "common/unique_fd.h"
#include "programs/limits.h"
#include "programs/paths.h"

namespace zor::cms {
namespace {

constexpr mode_t kOthers = S_IRWXG | S_IRWXO;

// Who may see a credential is up to the service manager, which grants access by lists that look like group rights.
std::string CredentialPath() {
  const char *directory = ::secure_getenv("CREDENTIALS_DIRECTORY");
  if (directory == nullptr) return {};
  std::string path = std::string(directory) + "/" + kCredentialName;
  return ::access(path.c_str(), F_OK) == 0 ? path : std::string();
}

const char *MistakeIn(const struct stat &status, bool isCredential) {
  if (isCredential) return nullptr;
  if (status.st_uid != 0 && status.st_uid != ::geteuid()) return "it belongs to another user";
  return (status.st_mode & kOthers) == 0 ? nullptr : "others than its owner may use it (chmod 400)";
}

const char *MistakeIn(const Secret &passphrase) {
  if (passphrase.size() < limits::cms::kLeastPassphrase) return "it is too short for a passphrase";
  return nullptr;
}

}  // namespace

PassphraseFile::Result PassphraseFile::Read(Secret *passphrase) const {
  const std::string credential = CredentialPath();
  const bool isCredential = !credential.empty();
  const std::string path = isCredential ? credential : daemon::FixedPath(path_);
  const OpenFile file(path);
  if (!file.valid() && errno == ENOENT) return Result::kMissing;
  if (!file.valid()) {
    problems_.PrintErrno("%s", path.c_str());
    return Result::kUnusable;
  }
  const char *mistake = MistakeIn(file.status(), isCredential);
  Secret text;
  if (mistake == nullptr && !file.ReadAll(limits::cms::kPassphraseFile, &text))
    mistake = "it cannot be read, or is too long";
  if (!text.empty() && text.back() == std::byte{'\n'}) text.pop_back();
  if (mistake == nullptr) mistake = MistakeIn(text);
  if (mistake != nullptr) {
    problems_.Print("%s is not used: %s", path.c_str(), mistake);
    return Result::kUnusable;
  }
  *passphrase = std::move(text);
  return Result::kFound;
}

}  // namespace zor::cms
