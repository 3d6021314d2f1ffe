// The client against the real server.
#include <unistd.h>
#include <zor/uv_loop.h>

#include <cstring>
#include <string>

#include "notifyclient/notify_fixture.h"

namespace zor::test {
namespace {

constexpr uint32_t kCms = 8;
constexpr uint32_t kEcho = 0x21;
constexpr uint32_t kDie = 0x22;

uint32_t Echo(void *data, void **answer, uint32_t *length) {
  *length = static_cast<uint32_t>(std::strlen(static_cast<const char *>(data)));
  *answer = ::strdup(static_cast<const char *>(data));
  return 0;
}

uint32_t Die(void *, void **, uint32_t *) {
  ::_exit(3);
}

int RunModule() {
  ZOR_NOTIFYCLT_SwitchSock(-1);  // the connection of the parent
  if (ZOR_NOTIFYCLT_Init(kCms) != ZOR_NOTIFY_OK) return 1;
  ZOR_NOTIFYCLT_RegSyncMsgProc(kEcho, Echo);
  ZOR_NOTIFYCLT_RegSyncMsgProc(kDie, Die);
  return ZOR_UV_LoopRun(nullptr, 0) == 0 ? 0 : 2;
}

// The answer of the module to a request, "" without data.
std::string Ask(uint32_t type, const std::string &data) {
  void *block = nullptr;
  uint32_t length = 0;
  EXPECT_EQ(ZOR_NOTIFYCLT_SendSynNotify(kCms, type, data.data(), static_cast<uint32_t>(data.size()), &block, &length),
            ZOR_NOTIFY_OK);
  const std::string answer(static_cast<const char *>(block), length);
  std::free(block);
  return answer;
}

TEST(NotifyAgainstServer, RequestsAreAnsweredUntilTheModuleDies) {
  const TempRoot root;
  Child server = Child::Program({NOTIFYSERVER});
  ASSERT_TRUE(server.WaitForOutput("listening on /var/run/notify/notifyserver\n"));
  ASSERT_EQ(ZOR_NOTIFYCLT_InitByName("web"), ZOR_NOTIFY_OK);
  EXPECT_EQ(Ask(kEcho, "anybody?"), "");
  Child module = Child::Function(RunModule);
  EXPECT_TRUE(WaitUntil([] { return Ask(kEcho, "ping") == "ping"; }));
  const std::string large(1'000'000, 'x');
  EXPECT_EQ(Ask(kEcho, large), large);
  EXPECT_EQ(Ask(kDie, ""), "");
  EXPECT_EQ(module.Wait(), 3);
  EXPECT_EQ(Ask(kEcho, "anybody?"), "");
  ZOR_NOTIFYCLT_Destroy();
  ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());
}

}  // namespace
}  // namespace zor::test
