// The settings of the page's server.
#ifndef ZORWEB_SETTINGS_H
#define ZORWEB_SETTINGS_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "programs/settings.h"

namespace zor::web {

// How a reader is admitted.
enum class Login { kNone, kToken, kPam };

struct WebSettings {
  std::string listen;
  std::vector<std::string> names;  // by which browsers may reach it, besides addresses and localhost
  std::string certificate;         // fixed paths; empty: no TLS
  std::string key;
  Login login = Login::kToken;
  std::string tokenFile;
  std::string loginSocket;  // empty: the login program is started for each check
  std::chrono::seconds sessionTime{};
  size_t connections = 0;
  std::chrono::seconds idlePeriod{};  // of looks at the bus while no page is open; 0: none
  std::string logDirectory;
  std::string mlogFile;

  bool usesTls() const { return !certificate.empty(); }
};

extern const char kSettingsHelp[];

WebSettings ReadSettings(daemon::Settings &settings);

}  // namespace zor::web

#endif
