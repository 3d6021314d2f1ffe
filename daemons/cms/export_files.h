// Exports of the configuration as files that clients name.
//
// An encrypted export is a store file, sealed. The store reads and writes files only, so its unencrypted form is for a
// moment in the daemon's own directory, where saved configurations are unencrypted too, and nowhere else.
#ifndef CMS_EXPORT_FILES_H
#define CMS_EXPORT_FILES_H

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "cms/passphrase.h"
#include "cms/secret.h"

namespace zor::cms {

// Which imported files need not be encrypted. Those that are not may come from anyone who could write there, so with a
// passphrase they are refused unless the settings allow them.
enum class PlainImport { kNever, kWithoutPassphrase, kAlways };

struct ExportRules {
  PlainImport plainImport;
  uint8_t keyCost;  // of new exports
};

class ExportFiles {
 public:
  // The scratch file is a fixed path.
  ExportFiles(std::string scratch, const PassphraseFile &passphrase, const ExportRules &rules)
      : scratch_(std::move(scratch)), passphrase_(passphrase), rules_(rules) {}

  // All return 0, a status of the store, or a ZOR_CFG_E_ result; real paths.

  // Encrypts what `write` makes of the store file at the path that it is given. Nothing is written without a
  // passphrase.
  uint32_t Seal(const std::string &target, const std::function<uint32_t(const std::string &path)> &write) const;
  // Calls `use` with the path of a store file that has the content of the export. It is authentic by then, or need not
  // be encrypted.
  uint32_t Open(const std::string &source, const std::function<uint32_t(const std::string &path)> &use) const;
  // 0 if there is no such file, or it is an export, which another one may replace.
  static uint32_t CheckTarget(const std::string &target);
  // Removes what a crash has left.
  void RemoveScratch() const;

 private:
  uint32_t ReadPassphrase(Secret *passphrase) const;
  uint32_t CheckPlainImport() const;
  uint32_t OpenSealed(std::span<const std::byte> file,
                      const std::function<uint32_t(const std::string &path)> &use) const;

  std::string scratch_;
  const PassphraseFile &passphrase_;
  ExportRules rules_;
};

}  // namespace zor::cms

#endif
