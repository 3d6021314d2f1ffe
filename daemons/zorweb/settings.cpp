#include "zorweb/settings.h"

#include <algorithm>
#include <string_view>

#include "programs/limits.h"
#include "programs/tcp_listener.h"

namespace zor::web {

const char kSettingsHelp[] =
    "  listen = 127.0.0.1:8780   ADDRESS:PORT (IPv4); other than loopback takes TLS and a login; port 0: any\n"
    "  names =                   NAME NAME ...: host names by which browsers reach it, besides addresses and "
    "localhost\n"
    "  certificate =             its certificate for TLS, then those between it and the authority (PEM)\n"
    "  key =                     the certificate's private key, which others may not read\n"
    "  login = token             token: that of token_file; pam: the system's accounts; none: on loopback only\n"
    "  token_file = /var/lib/zor-web/token  the token, which is made if there is none\n"
    "  login_socket =            where a zorweb-login listens; none: zorweb-login is run for each login\n"
    "  session_minutes = 480     time after which to log in again\n"
    "  max_connections = 256     maximum number of connections; an open page takes one or two\n"
    "  idle_seconds = 10         interval of looks at the bus while no page is open; 0: none, so the plots begin "
    "empty\n"
    "  log_directory = /var/syslog  where the log daemon writes lines for the page (its setting query_directory)\n"
    "  mlog_file = /online/log/mlog.log  the developers' log (mlogserver's setting log_file)\n";

namespace {

bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

std::vector<std::string> ReadNames(daemon::Settings &settings) {
  std::string text = settings.Text("names", "");
  std::transform(text.begin(), text.end(), text.begin(), [](char c) { return c == '\t' ? ' ' : c; });
  std::vector<std::string> names;
  for (size_t begin = 0; (begin = text.find_first_not_of(' ', begin)) != text.npos;) {
    const size_t end = std::min(text.find(' ', begin), text.size());
    names.push_back(text.substr(begin, end - begin));
    if (!std::all_of(names.back().begin(), names.back().end(), IsNameCharacter)) {
      settings.AddMistake("names: not a host name in lower case: " + names.back());
    }
    begin = end;
  }
  return names;
}

std::string OptionalPath(daemon::Settings &settings, const char *key) {
  std::string path = settings.Text(key, "");
  if (!path.empty() && !path.starts_with('/')) settings.AddMistake(std::string(key) + " must be an absolute path");
  return path;
}

Login ReadLogin(daemon::Settings &settings) {
  const std::string word = settings.Text("login", "token");
  if (word == "pam") return Login::kPam;
  if (word == "none") return Login::kNone;
  if (word != "token") settings.AddMistake("login must be token, pam or none");
  return Login::kToken;
}

// Whoever is on the network would otherwise read along, or look at the bus.
void CheckExposure(daemon::Settings &settings, const WebSettings &read) {
  const auto address = daemon::ParseTcpAddress(read.listen);
  if (!address) return settings.AddMistake("listen must be an IPv4 ADDRESS:PORT");
  if (read.certificate.empty() != read.key.empty()) settings.AddMistake("certificate and key belong together");
  if (daemon::IsLoopback(*address)) return;
  if (!read.usesTls()) settings.AddMistake("listen: an address that is not loopback needs a certificate and a key");
  if (read.login == Login::kNone) settings.AddMistake("listen: an address that is not loopback needs a login");
}

}  // namespace

WebSettings ReadSettings(daemon::Settings &settings) {
  using namespace limits::zorweb;  // NOLINT(google-build-using-namespace): its own limits
  WebSettings read;
  read.listen = settings.Text("listen", "127.0.0.1:8780");
  read.names = ReadNames(settings);
  read.certificate = OptionalPath(settings, "certificate");
  read.key = OptionalPath(settings, "key");
  read.login = ReadLogin(settings);
  read.tokenFile = settings.Path("token_file", "/var/lib/zor-web/token");
  read.loginSocket = OptionalPath(settings, "login_socket");
  read.sessionTime = std::chrono::minutes(settings.Number("session_minutes", kSessionMinutes, 1, kMostSessionMinutes));
  read.connections = static_cast<size_t>(settings.Number("max_connections", kConnections, 1, kMostConnections));
  read.idlePeriod = std::chrono::seconds(settings.Number("idle_seconds", kIdleSeconds, 0, kMostIdleSeconds));
  read.logDirectory = settings.Path("log_directory", "/var/syslog");
  read.mlogFile = settings.Path("mlog_file", "/online/log/mlog.log");
  CheckExposure(settings, read);
  return read;
}

}  // namespace zor::web
