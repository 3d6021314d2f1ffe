#include "zorctl/fleet_access.h"

#include <algorithm>
#include <cstdlib>

#include "programs/messages/number.h"
#include "programs/settings.h"
#include "zorctl/exit_code.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

constexpr uint16_t kPort = 1883;
constexpr uint16_t kTlsPort = 8883;
constexpr char kForm[] = "a broker is mqtt://[USER@]HOST[:PORT][/PREFIX], or mqtts://...";

Failure BadUrl(const std::string &what) {
  return {kExitUsage, what, kForm};
}

// Removes the text up to the separator from the front of the rest and returns it; empty if there is no separator.
std::string TakeUpTo(char separator, std::string_view &rest) {
  const size_t end = rest.find(separator);
  if (end == rest.npos) return {};
  std::string text(rest.substr(0, end));
  rest.remove_prefix(end + 1);
  return text;
}

void SetHost(std::string_view text, FleetAccess &access) {
  std::string_view port;
  if (text.starts_with('[')) {
    const size_t end = text.find(']');
    if (end == text.npos) throw BadUrl("no ] after the address");
    access.host = text.substr(1, end - 1);
    text.remove_prefix(end + 1);
    if (!text.empty() && text[0] != ':') throw BadUrl("malformed port");
    port = text;
  } else {
    access.host = text.substr(0, text.find(':'));
    port = text.substr(access.host.size());
  }
  if (access.host.empty() || !IsPrintable(access.host)) throw BadUrl("no host in the broker's URL");
  if (port.empty()) return;
  const auto number = messages::ParseUint32(port.substr(1));
  if (!number || *number == 0 || *number > UINT16_MAX) throw BadUrl("not a port: " + Escape(port.substr(1)));
  access.port = static_cast<uint16_t>(*number);
}

void SetPrefix(std::string_view text, FleetAccess &access) {
  if (text.empty()) return;
  const bool valid = IsPrintable(text) && text.find_first_of("+#$") == text.npos && text.front() != '/' &&
                     text.back() != '/' && text.find("//") == text.npos;
  if (!valid) throw BadUrl("not a prefix of topics: " + Escape(text));
  access.prefix = text;
}

struct Source {
  const char *variable;
  const char *key;
  std::string FleetOptions::*option;
};

constexpr Source kSources[] = {{"ZOR_FLEET", "url", &FleetOptions::url},
                               {"ZOR_FLEET_CA", "ca", &FleetOptions::authority},
                               {"ZOR_FLEET_CERT", "certificate", &FleetOptions::certificate},
                               {"ZOR_FLEET_KEY", "key", &FleetOptions::key},
                               {"ZOR_FLEET_PASSWORD_FILE", "password_file", &FleetOptions::passwordFile}};

std::string UserFile() {
  const char *home = std::getenv("HOME");
  return home == nullptr || *home == '\0' ? "" : std::string(home) + "/.config/zorctl/fleet.conf";
}

}  // namespace

std::string FleetAccess::address() const {
  const bool bracketed = host.find(':') != host.npos;
  return (bracketed ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

FleetAccess ParseFleetUrl(std::string_view url) {
  FleetAccess access;
  access.tls = url.starts_with("mqtts://");
  if (!access.tls && !url.starts_with("mqtt://")) throw BadUrl("not the URL of a broker: " + Escape(url));
  access.port = access.tls ? kTlsPort : kPort;
  access.prefix = "zor";
  std::string_view rest = url.substr(url.find("//") + 2);
  const std::string_view path = rest.substr(std::min(rest.find('/'), rest.size()));
  rest.remove_suffix(path.size());
  access.user = TakeUpTo('@', rest);
  if (access.user.find(':') != access.user.npos) {
    throw Failure(kExitUsage, "a password in the broker's URL",
                  "other users can read it there: write it into a file, and name that with --password-file");
  }
  SetHost(rest, access);
  SetPrefix(path.substr(path.empty() ? 0 : 1), access);
  return access;
}

FleetOptions CompleteFleetOptions(FleetOptions given) {
  const std::string path = UserFile();
  daemon::Settings file = path.empty() ? daemon::Settings::FromText("", "") : daemon::Settings::FromFile(path, false);
  for (const Source &source : kSources) {
    const std::string fromFile = file.Text(source.key, "");
    std::string &option = given.*source.option;
    const char *variable = std::getenv(source.variable);
    if (option.empty() && variable != nullptr) option = variable;
    if (option.empty()) option = fromFile;
  }
  daemon::ProblemLog log("zorctl");
  if (file.CheckAndReport(log)) return given;
  throw Failure(kExitUsage, "mistakes in " + Escape(path), "it may hold url, ca, certificate, key and password_file");
}

FleetAccess AccessOf(const FleetOptions &options) {
  if (options.url.empty()) throw BadUrl("no broker: give --fleet URL, or set ZOR_FLEET");
  FleetAccess access = ParseFleetUrl(options.url);
  access.authority = options.authority;
  access.certificate = options.certificate;
  access.key = options.key;
  if (access.certificate.empty() != access.key.empty()) {
    throw Failure(kExitUsage, "a certificate without its key, or a key without its certificate", "give both or none");
  }
  access.passwordFile = options.passwordFile;
  return access;
}

}  // namespace zor::ctl
