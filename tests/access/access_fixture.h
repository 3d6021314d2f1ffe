// A system with a few users, whose rules are asked in their own words.
#ifndef TESTS_ACCESS_ACCESS_FIXTURE_H
#define TESTS_ACCESS_ACCESS_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "programs/access/rules.h"
#include "support/temp_root.h"

namespace zor::test {

inline void WriteFile(const std::string &path, const std::string &text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path) << text;
}

class Access : public testing::Test {
 protected:
  Access() {
    WriteFile(root_.Path("/etc/passwd"),
              "root:x:0:0:::\n_zor-msgsvr:x:101:110:::\n_zor-notify:x:102:110:::\n_zor-mlog:x:103:110:::\n"
              "_zor-cms:x:104:110:::\n_zor-syslog:x:105:110:::\n_zor-bridge:x:109:110:::\nweb:x:106:106:::\nguest:x:"
              "107:107:::\nboss:x:108:108:::\n");
    WriteFile(root_.Path("/etc/group"), "root:x:0:\n_zorbus:x:110:web\n_zoradmin:x:111:boss\nweb:x:106:\n");
    accounts_ = access::Accounts::OfDirectory(root_.Path("/etc"));
  }

  // A user with its groups, of whose process nothing else is known.
  access::Identity User(const std::string &name) const {
    access::Identity identity;
    identity.user = accounts_.User(name);
    identity.groups = accounts_.GroupsOf(*identity.user);
    return identity;
  }

  access::Identity UserInUnit(const std::string &name, const std::string &unit) const {
    access::Identity identity = User(name);
    identity.unit = unit;
    return identity;
  }

  static access::Identity Board(std::uint32_t address, std::optional<std::string> certificate = {}) {
    access::Identity identity;
    identity.board = address;
    identity.certificate = std::move(certificate);
    return identity;
  }

  access::Rules Parse(const std::string &text) {
    auto rules = access::Rules::FromText(text, "rules", accounts_, mistakes_);
    EXPECT_THAT(mistakes_, testing::IsEmpty());
    return rules ? std::move(*rules) : access::Rules();
  }

  TempRoot root_;
  access::Accounts accounts_ = access::Accounts::OfDirectory("/nonexistent");
  std::vector<std::string> mistakes_;
};

}  // namespace zor::test

#endif
