// The passphrase of encrypted exports, from a credential of the service manager (systemd's LoadCredential=, in the
// directory that CREDENTIALS_DIRECTORY names) or from a file that nobody but its owner can read. It is read for each
// request anew: it is in memory no longer than needed, and a new one needs no restart.
#ifndef CMS_PASSPHRASE_H
#define CMS_PASSPHRASE_H

#include <string>

#include "cms/secret.h"
#include "programs/problem_log.h"

namespace zor::cms {

constexpr char kCredentialName[] = "cms.passphrase";

class PassphraseFile {
 public:
  // A fixed path, used where there is no credential.
  PassphraseFile(std::string path, daemon::ProblemLog &problems) : path_(std::move(path)), problems_(problems) {}

  enum class Result { kFound, kMissing, kUnusable };
  // Without its newline. A file that is there but cannot be used is logged with the reason.
  Result Read(Secret *passphrase) const;

 private:
  std::string path_;
  daemon::ProblemLog &problems_;
};

}  // namespace zor::cms

#endif
