// Device records and their files as bytes.
#ifndef TESTS_KIVAAPI_DEVICE_FILES_H
#define TESTS_KIVAAPI_DEVICE_FILES_H

#include <gmock/gmock.h>
#include <zor/kiva.h>
#include <zor/platform/file.h>
#include <zor/status.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/temp_root.h"

namespace zor::test {

inline std::string XdrWords(std::initializer_list<uint32_t> words) {
  std::string bytes;
  for (const uint32_t word : words) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(word >> shift);
  }
  return bytes;
}

inline std::string XdrText(const std::string &text) {
  return XdrWords({static_cast<uint32_t>(text.size())}) + text + std::string((4 - text.size() % 4) % 4, '\0');
}

// A record of the crash list: the MAC, "b", "w", "s", "d", and a word.
inline std::string CrashBytes(const std::string &mac, uint32_t result) {
  return XdrText(mac) + XdrText("b") + XdrText("w") + XdrText("s") + XdrText("d") + XdrWords({result});
}

// A record of the KIVA list: words 1, 2, the state, 4 and flags, the MAC, "d" and "x".
inline std::string KivaBytes(const std::string &mac, uint32_t state, uint32_t flags = 0) {
  return XdrWords({1, 2, state, 4, flags}) + XdrText(mac) + XdrText("d") + XdrText("x");
}

// A whole KIVA list of records given from the last to the first.
inline std::string KivaFile(const std::vector<std::string> &records) {
  std::string markers, bytes;
  for (const std::string &record : records) {
    markers += XdrWords({1});
    bytes += record;
  }
  return markers + XdrWords({0}) + bytes + std::string(20, '\0');
}

// A private system with room for both lists.
class DeviceFiles : public testing::Test {
 protected:
  DeviceFiles() { std::filesystem::create_directory(root_.Path("/var/kiva")); }

  void Write(const char *fixedPath, const std::string &bytes) const {
    std::ofstream(root_.Path(fixedPath), std::ios::binary) << bytes;
  }
  std::string Read(const std::string &fixedPath) const { return ContentOf(root_.Path(fixedPath)); }
  static std::vector<std::string> KivaMacs() {
    dev_kivainfo_list head;
    EXPECT_EQ(ZOR_UPG_GetKivaInfoList(&head), ZOR_OK);
    std::vector<std::string> macs;
    for (const dev_kivainfo_list *node = head.next; node != nullptr; node = node->next) macs.push_back(node->info.mac);
    ZOR_UPG_DestroyKivaInfoList(&head.next);
    return macs;
  }
  static std::vector<std::string> CrashMacs() {
    dev_crashinfo_list *list = nullptr;
    EXPECT_EQ(ZOR_Crash_GetStatusInfoList(&list), ZOR_OK);
    std::vector<std::string> macs;
    for (const dev_crashinfo_list *node = list; node != nullptr; node = node->next) macs.push_back(node->info.DevMac);
    ZOR_Crash_DestroyDevInfoList(list);
    return macs;
  }
  // Merge the records that CrashBytes and KivaBytes describe.
  static uint32_t AddCrash(std::string mac, uint32_t result) {
    char b[] = "b", w[] = "w", s[] = "s", d[] = "d";
    const dev_crash_info record = {mac.data(), b, w, s, d, result};
    return ZOR_Crash_UpdateAndAddDevInfoToXdr(&record);
  }
  static uint32_t AddKiva(std::string mac, uint32_t state) {
    char d[] = "d", x[] = "x";
    const dev_kiva_info info = {{1, 2, state, 4, 0}, mac.data(), d, x};
    return ZOR_UPG_AddDevKivaInfoToXDR(&info);
  }

  TempRoot root_;
};

}  // namespace zor::test

#endif
