#include "programs/access/accounts.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "programs/settings.h"

namespace zor::access {
namespace {

std::optional<unsigned> ParseId(std::string_view text) {
  std::uint64_t number = 0;
  // The highest number stands for "no user" in system calls.
  if (!daemon::ParseNumber(text, &number) || number >= UINT32_MAX) return std::nullopt;
  return static_cast<unsigned>(number);
}

std::vector<std::string> Split(const std::string &text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

template <class Records>
std::optional<unsigned> NumberIn(const Records &records, const std::string &name) {
  const auto found = records.find(name);
  return found == records.end() ? std::nullopt : std::optional<unsigned>(found->second.number);
}

template <class Records>
std::string NameIn(const Records &records, unsigned number) {
  const auto found =
      std::find_if(records.begin(), records.end(), [=](const auto &each) { return each.second.number == number; });
  return found == records.end() ? std::to_string(number) : found->first;
}

}  // namespace

Accounts Accounts::OfSystem() {
  Accounts accounts = OfDirectory("/etc");
  accounts.asksSystem_ = true;
  return accounts;
}

Accounts Accounts::OfDirectory(const std::string &directory) {
  Accounts accounts;
  accounts.users_ = ReadRecords(directory + "/passwd", false);
  accounts.groups_ = ReadRecords(directory + "/group", true);
  return accounts;
}

// "NAME:PASSWORD:NUMBER:GROUP:..." of users, "NAME:PASSWORD:NUMBER:MEMBER,MEMBER" of groups.
Accounts::Records Accounts::ReadRecords(const std::string &path, bool isGroups) {
  Records records;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    const std::vector<std::string> fields = Split(line, ':');
    const auto number = fields.size() < 3 ? std::nullopt : ParseId(fields[2]);
    if (!number) continue;
    Record record = {*number, 0, {}};
    if (isGroups && fields.size() > 3) record.members = Split(fields[3], ',');
    if (!isGroups && fields.size() > 3) record.group = ParseId(fields[3]).value_or(0);
    records.emplace(fields[0], std::move(record));
  }
  return records;
}

std::optional<uid_t> Accounts::User(const std::string &name) const {
  if (const auto number = ParseId(name)) return number;
  if (const auto number = NumberIn(users_, name)) return number;
  const passwd *found = asksSystem_ ? ::getpwnam(name.c_str()) : nullptr;
  return found == nullptr ? std::nullopt : std::optional<uid_t>(found->pw_uid);
}

std::optional<gid_t> Accounts::Group(const std::string &name) const {
  if (const auto number = ParseId(name)) return number;
  if (const auto number = NumberIn(groups_, name)) return number;
  const group *found = asksSystem_ ? ::getgrnam(name.c_str()) : nullptr;
  return found == nullptr ? std::nullopt : std::optional<gid_t>(found->gr_gid);
}

std::vector<gid_t> Accounts::GroupsOf(uid_t user) const {
  std::vector<gid_t> all;
  const std::string name = UserName(user);
  const auto known = users_.find(name);
  if (known != users_.end()) all.push_back(known->second.group);
  const passwd *found = known == users_.end() && asksSystem_ ? ::getpwuid(user) : nullptr;
  if (found != nullptr) all.push_back(found->pw_gid);
  for (const auto &[groupName, record] : groups_) {
    if (std::find(record.members.begin(), record.members.end(), name) != record.members.end()) {
      all.push_back(record.number);
    }
  }
  std::sort(all.begin(), all.end());
  all.erase(std::unique(all.begin(), all.end()), all.end());
  return all;
}

std::string Accounts::UserName(uid_t user) const {
  return NameIn(users_, user);
}

std::string Accounts::GroupName(gid_t group) const {
  return NameIn(groups_, group);
}

}  // namespace zor::access
