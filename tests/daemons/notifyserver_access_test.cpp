// Who may register a module and ask for control, by the rules of access.
#include <zor/notify_control_wire.h>
#include <zor/paths.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "common/socket_address.h"
#include "daemons/notifyserver_fixture.h"
#include "daemons/store_manager.h"
#include "programs/local_address.h"

namespace zor::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr uint32_t kWeb = 26;
constexpr uint32_t kCms = 8;

class NotifyServerAccess : public NotifyServerTest {
 protected:
  NotifyServerAccess() : path_(root_.Path("/etc/zor/access.d/50.conf")), self_(std::to_string(::geteuid())) {
    std::filesystem::create_directories(std::filesystem::path(path_).parent_path());
  }

  void WriteRules(const std::string &text) const {
    std::ofstream(path_) << text;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_read);
    std::filesystem::permissions(path_, std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
  }
  bool IsRefused(uint32_t mid) const {
    const BusPeer client = Connect();
    client.Send(MakeRegistration(mid).Bytes());
    return client.ClosedByOther();
  }
  // The word that begins the reply, and the text behind it.
  static std::pair<uint32_t, std::string> Ask(const BusPeer &client, uint32_t type) {
    client.Send(MakeRequest(type, 5, 0, ZOR_NOTIFY_MID_SERVER).Bytes());
    const NotifyFrame reply = ReceiveNotify(client).value_or(NotifyFrame());
    uint32_t word = UINT32_MAX;
    if (reply.data.size() >= sizeof word) std::memcpy(&word, reply.data.data(), sizeof word);
    return {word, reply.data.substr(std::min(reply.data.size(), sizeof word))};
  }

  std::string path_;
  std::string self_;
};

TEST_F(NotifyServerAccess, RefusesModulesAndControlWithALineThatNamesTheRule) {
  WriteRules("allow = user:" + self_ + " module 8\nallow = user:" + self_ + " control 0xFFFF0000\ndeny = any all\n");
  Start();
  const BusPeer cms = Register(kCms);
  EXPECT_TRUE(IsRefused(kWeb));
  EXPECT_EQ(Ask(cms, ZOR_NOTIFY_CONTROL_LIST).first, ZOR_CONTROL_OK);
  EXPECT_EQ(Ask(cms, ZOR_NOTIFY_CONTROL_RESTART).first, ZOR_CONTROL_REFUSED) << "not even for the server's own user";
  Settle(cms, kCms);
  const std::string why = path_ + ":3: deny = any all\n";
  EXPECT_THAT(Stop(), AllOf(HasSubstr("module 26 refused to an unregistered client (pid "), HasSubstr("user:" + self_),
                            HasSubstr(why), HasSubstr("refused to module 8 (pid "), Not(HasSubstr("cut off"))));
}

TEST_F(NotifyServerAccess, ObservesWithoutRefusingAndListsWhatItWouldRefuse) {
  WriteRules("mode = observe\n");
  Start();
  const BusPeer web = Register(kWeb);
  EXPECT_EQ(Ask(web, ZOR_NOTIFY_CONTROL_LIST).first, ZOR_CONTROL_OK) << "as without rules";
  const auto [result, text] = Ask(web, ZOR_NOTIFY_CONTROL_REFUSALS);
  EXPECT_EQ(result, ZOR_CONTROL_OK);
  EXPECT_THAT(text, AllOf(HasSubstr("seen = 1 user:" + self_), HasSubstr(" module 26\n"), HasSubstr(" control ")));
  EXPECT_THAT(Stop(), HasSubstr("module 26 would be refused to an unregistered client"));
}

TEST_F(NotifyServerAccess, TakesNewRulesAtAHandOverOrKeepsTheOldOnes) {
  const std::string all = "allow = user:" + self_ + " all\n";
  const std::string mistake = "allow = user: all\n";
  WriteRules(mistake);
  EXPECT_EQ(Run("").Wait(), 3);
  WriteRules(all);
  StoreManager manager(root_.Path("/manager"));
  manager.Start({NOTIFYSERVER});
  const BusPeer web = Register(kWeb);
  WriteRules("deny = any module 8\n" + all + mistake);
  const auto [result, why] = Ask(web, ZOR_NOTIFY_CONTROL_RESTART);
  EXPECT_EQ(result, ZOR_CONTROL_UNCHANGED);
  EXPECT_THAT(why, HasSubstr("50.conf:3"));
  Register(kCms);
  WriteRules("deny = any module 8\n" + all);
  EXPECT_EQ(Ask(web, ZOR_NOTIFY_CONTROL_RESTART).first, ZOR_CONTROL_OK);
  EXPECT_TRUE(IsRefused(kCms));
  // And without one.
  WriteRules(all + mistake);
  EXPECT_EQ(Ask(web, ZOR_NOTIFY_CONTROL_ACCESS_RELOAD).first, ZOR_CONTROL_UNCHANGED);
  EXPECT_TRUE(IsRefused(kCms));
  WriteRules(all);
  EXPECT_EQ(Ask(web, ZOR_NOTIFY_CONTROL_ACCESS_RELOAD).first, ZOR_CONTROL_OK);
  Register(kCms);
}

// The identity is that of the process that connected, which is gone by now: nothing but a record has its executable.
TEST_F(NotifyServerAccess, KnowsClientsByTheirFirstIdentityAfterHandOversAndCrashes) {
  WriteRules("allow = user:" + self_ + " exe:/* all\n");
  StoreManager manager(root_.Path("/manager"));
  manager.Start({NOTIFYSERVER});
  const BusPeer tool(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  Child child = Child::Function([&] {
    if (!zor::Connect(tool.fd(), *daemon::LocalAddress(root_.Path(ZOR_PATH_NOTIFY_SERVER)))) return 1;
    return Ask(tool, ZOR_NOTIFY_CONTROL_LIST).first == ZOR_CONTROL_OK ? 0 : 2;
  });
  const int result = child.Wait();
  if (result == 2) GTEST_SKIP() << "no executable of a process is known here";
  ASSERT_EQ(result, 0);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Ask(tool, ZOR_NOTIFY_CONTROL_RESTART).first, ZOR_CONTROL_OK);
    manager.Kill();
    manager.Start({NOTIFYSERVER});
  }
}

}  // namespace
}  // namespace zor::test
