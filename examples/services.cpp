// A daemon that uses what the system's own daemons offer: the log ("syslog"), the configuration and the device list
// ("cms"), and login control ("lctrl"). Before that it starts its modules through a notifier chain. The exit status is
// 0 when every step gave what it should.
#include <zor/cfm.h>
#include <zor/config_wire.h>
#include <zor/kiva.h>
#include <zor/lctrl.h>
#include <zor/log.h>
#include <zor/msg.h>
#include <zor/notifier.h>
#include <zor/platform/config.h>
#include <zor/platform/file.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace {

constexpr uint32_t kLampName = 0x70000001;  // a parameter of this daemon's own
int failures = 0;

void Check(bool good, const std::string &what) {
  std::printf("%s %s\n", good ? "ok" : "FAILED", what.c_str());
  if (!good) ++failures;
}

std::string FileText(const char *fixedPath) {
  char place[PATH_MAX];
  ZOR_UTIL_FixedPath(fixedPath, place, sizeof place);
  std::stringstream text;
  text << std::ifstream(place).rdbuf();
  return text.str();
}

std::string started;

uint32_t StartModule(uintptr_t, uintptr_t name) {
  started += static_cast<char>(name);
  return ZOR_OK;
}

// Modules register in any order and start by priority; the boot-track log records how long each one took.
void Modules() {
  ZOR_NOTIFIER_CHAIN *chain = nullptr;
  ZOR_UTIL_NotifierInit(0, &chain);
  for (const char name : {'c', 'a', 'b'}) {
    ZOR_UTIL_NotifierRegister(chain, StartModule, static_cast<uint32_t>(name), static_cast<uintptr_t>(name), nullptr);
  }
  ZOR_UTIL_NotifierDoNotifyExWithCmsInit(chain, 1, nullptr, 1);
  while (chain->nodes != nullptr) ZOR_UTIL_NotifierUnRegister(chain, chain->nodes);
  std::free(chain);
  const std::string track = FileText("/var/zor_boot_track.log");
  std::printf("%s", track.c_str());
  Check(started == "abc" && track.find("[end cmsmodinit] init notify") != std::string::npos,
        "modules started by priority: " + started + ", and the boot track records when");
}

// One record, read back in both languages.
void LogRecords() {
  const ZOR_LOG_ITEM *item = ZOR_UTIL_LogItemFindByIdx(0x05000000);
  ZOR_LOG_API_Record_Log(0x05000000, "admin", "192.168.8.2", static_cast<char *>(nullptr));
  ZOR_LOG_API_Flush_Log(__LINE__, __func__);
  const char *const files[] = {"/var/syslog/english", "/var/syslog/chinese"};
  for (const uint32_t language : {0u, 1u}) {
    uint32_t count = 0;
    const uint32_t status =
        ZOR_LOG_API_Query_Items(files[language], 0, item->typeLevel >> 8, item->typeLevel & 0xff, language, &count);
    const std::string lines = FileText(files[language]);
    std::printf("%s", lines.c_str());
    Check(status == ZOR_OK && count == 1 && lines.find("admin") != std::string::npos, "log record read back");
  }
}

std::string LampName() {
  char name[16] = {};
  ZOR_DBGetPara(kLampName, 0, name, sizeof name - 1);
  return name;
}

// A value is saved, changed, and restored.
void Configuration() {
  ZOR_DBSetPara(kLampName, 0, "kitchen", sizeof "kitchen");
  const uint32_t saved = ZOR_DBSaveSyncFunc();
  ZOR_DBSetPara(kLampName, 0, "cellar", sizeof "cellar");
  const std::string changed = LampName();
  ZOR_CFM_ExtRestoreDft(ZOR_CFG_RESTORE_SAVED);
  ZOR_AppSaveSyncFunc();  // requests of one sender are served in order, so the restore is done by now
  Check(saved == ZOR_OK && changed == "cellar" && LampName() == "kitchen",
        "configuration: saved kitchen, changed to " + changed + ", restored " + LampName());
}

// "cms" changes the device list on request; reading it needs no request (devices.cpp).
void Devices() {
  char phone[] = "001122AABBCC";
  char lamp[] = "001122DDEEFF";
  const dev_kiva_info loading = {{0, 0, ZOR_KIVA_STATE_LOADING, 0, 0}, phone, nullptr, nullptr};
  const dev_kiva_info kept = {{0, 0, ZOR_KIVA_STATE_KEPT, 0, ZOR_KIVA_NEEDS_UPDATE}, lamp, nullptr, nullptr};
  const bool added = ZOR_UPG_AddDevKivaInfoSync(&loading) == ZOR_OK && ZOR_UPG_AddDevKivaInfoSync(&kept) == ZOR_OK;
  const bool told = ZOR_UPG_UpdateKivaDlSize(phone, 4096) == ZOR_OK;  // served before what is asked next
  const bool removed = ZOR_UPG_RemoveDevKivaInfoSync("00:11:22:DD:EE:FF") == ZOR_OK;
  Check(added && told && removed && ZOR_UPG_GetKivaInfoListCount() == 1,
        "device list: two devices added, one of them loading, the other removed");
}

// The first request gets no reply within 4 s; the second one does.
void Login() {
  const char request[ZOR_LCTRL_LOGIN_SIZE] = "admin";
  char result[ZOR_LCTRL_RESULT_SIZE] = {};
  const uint32_t status = ZOR_LCTRLAPI_Check(request, result);
  Check(status == ZOR_OK, std::string("login check, after one time-out: ") + result);
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  Modules();
  if (ZOR_MSG_Init("tour") != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  LogRecords();
  Configuration();
  Devices();
  Login();
  ZOR_MSG_Destroy();
  return failures == 0 ? 0 : 1;
}
