/*
 * What the configuration daemon does with the store: save it for a user, restore it, write it to a file that somebody
 * names, read it from one, and empty it. Every operation returns 0 or a status of the store.
 *
 * What is saved lies in one directory:
 *   config_USER.db   the configuration that the user saved
 *   app_USER.db      configuration and application data together
 *   appdata.db       application data
 * All are store files; they are written beside their name and renamed, so a crash keeps the old one. Nothing is
 * encrypted, exported files neither: only their owner can read them.
 */
#ifndef CMS_CONFIGURATION_H
#define CMS_CONFIGURATION_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace zor::cms {

class Configuration {
 public:
  // Fixed paths: the directory, which must exist, and the file with what the device was delivered with. Without such a
  // file the device was delivered with no configuration at all.
  Configuration(std::string directory, std::string factoryFile)
      : directory_(std::move(directory)), factoryFile_(std::move(factoryFile)) {}

  uint32_t Save(uint32_t user) const;
  uint32_t SaveWithAppData(uint32_t user) const;
  uint32_t SaveAppData() const;

  uint32_t RestoreFactory() const;
  uint32_t RestoreSaved(uint32_t user) const;

  // Writes the configuration as it is now.
  uint32_t Export(const std::string &path) const;
  // Writes what the user saved; not found when that is nothing.
  uint32_t ExportSaved(uint32_t user, const std::string &path) const;
  uint32_t Import(const std::string &path) const;
  uint32_t Check(const std::string &path) const;

  // Empties the configuration and forgets everything that was saved of it, for all users.
  uint32_t Clean() const;
  // The same with the application data.
  uint32_t DeleteAppData() const;

 private:
  std::string PathOf(const char *kind, uint32_t user) const;
  uint32_t Forget(std::initializer_list<std::string_view> kinds) const;

  std::string directory_;
  std::string factoryFile_;
};

}  // namespace zor::cms

#endif
