// The configuration daemon's operations on the store: save it for a user, restore it, export it to a file, import it
// from one, and clear it. Every operation returns 0 or a status of the store.
//
// Saved files are in one directory:
//   config_USER.db   the configuration that the user saved
//   app_USER.db      configuration and application data together
//   appdata.db       application data
// All are store files, written under another name and renamed, so that a crash keeps the old one. They are not
// encrypted, but only their owner can read them. Exports leave the directory, and may be encrypted.
#ifndef CMS_CONFIGURATION_H
#define CMS_CONFIGURATION_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "cms/export_files.h"

namespace zor::cms {

class Configuration {
 public:
  // Fixed paths: the directory, which must exist, and the file with the factory configuration. Without such a file the
  // factory configuration is empty.
  Configuration(std::string directory, std::string factoryFile, const ExportFiles &exports)
      : directory_(std::move(directory)), factoryFile_(std::move(factoryFile)), exports_(exports) {}

  uint32_t Save(uint32_t user) const;
  uint32_t SaveWithAppData(uint32_t user) const;
  uint32_t SaveAppData() const;

  uint32_t RestoreFactory() const;
  uint32_t RestoreSaved(uint32_t user) const;

  // Files of requests are real paths, empty for a malformed request. No export may be in the directory.

  // Encrypts the current configuration.
  uint32_t Export(const std::string &target) const;
  // Encrypts the user's saved configuration; ZOR_STORE_E_NOT_FOUND if there is none.
  uint32_t ExportSaved(uint32_t user, const std::string &target) const;
  // Copies it without encryption.
  uint32_t CopySaved(uint32_t user, const std::string &target) const;
  // Imports or checks an export, encrypted or not.
  uint32_t Import(const std::string &source) const;
  uint32_t Check(const std::string &source) const;

  // Clears the configuration and deletes all saved copies of it, for all users.
  uint32_t Clean() const;
  // The same for the application data.
  uint32_t DeleteAppData() const;

 private:
  std::string PathOf(const char *kind, uint32_t user) const;
  bool IsTarget(const std::string &path) const;
  uint32_t DeleteSaved(std::initializer_list<std::string_view> kinds) const;

  std::string directory_;
  std::string factoryFile_;
  const ExportFiles &exports_;
};

}  // namespace zor::cms

#endif
