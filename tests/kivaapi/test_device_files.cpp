// The crash list, and what both lists make of long, damaged and unwritable files.
#include <rpc/types.h>
#include <rpc/xdr.h>
#include <sys/resource.h>

#include <csignal>

#include "kivaapi/device_files.h"
#include "support/capture.h"

namespace zor::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr size_t kManyRecords = 100000;

TEST_F(DeviceFiles, HoldCrashRecordsAndReportThatThereWasNoneBefore) {
  EXPECT_EQ(ZOR_Crash_RemoveNodeByMac("aa"), ZOR_FILE_E_IO);
  EXPECT_EQ(AddCrash("aa", 1), ZOR_FILE_E_IO);
  EXPECT_EQ(Read(ZOR_PATH_CRASH_LIST), XdrWords({0}) + CrashBytes("aa", 1));
  EXPECT_EQ(AddCrash("bb", 2), ZOR_OK);
  char mac[] = "AA";
  const dev_crash_info empty = {mac, nullptr, nullptr, nullptr, nullptr, 0};
  EXPECT_EQ(ZOR_Crash_UpdateAndAddDevInfoToXdr(&empty), ZOR_OK);
  EXPECT_EQ(Read(ZOR_PATH_CRASH_LIST),
            XdrWords({1, 0}) + CrashBytes("bb", 2) + XdrText("AA") + XdrWords({0, 0, 0, 0, 0}));
  EXPECT_THAT(CrashMacs(), ElementsAre("AA", "bb"));
  for (const char *each : {"other", "aa", "bb"}) EXPECT_EQ(ZOR_Crash_RemoveNodeByMac(each), ZOR_OK);
  EXPECT_EQ(Read(ZOR_PATH_CRASH_LIST), "");
  EXPECT_THAT(CrashMacs(), IsEmpty());
  EXPECT_EQ(AddCrash("cc", 3), ZOR_OK) << "an empty file is an empty list";
}

TEST_F(DeviceFiles, ArePrintedInAnOrderOfTheirOwn) {
  char mac[] = "m", b[] = "b", w[] = "w", s[] = "s";
  const dev_crashinfo_list node = {nullptr, {mac, b, w, s, nullptr, 0xffffffff}};
  const std::string rule(51, '-');
  Capture output;
  ZOR_Crash_PrintStatusList(nullptr);
  ZOR_Crash_PrintStatusList(&node);
  EXPECT_EQ(output.Text(), "pstDevInfoList is null" + rule +
                               "\nDevMac            :m \nDiagnosticsState  : \nWebDownloadURL    :w \n"
                               "BetaDownloadURL   :b \nWebSession        :s \nResultState       :-1 \n\n" +
                               rule + "\n");
}

// Decodes, encodes again and frees by an exported filter; the bytes that were encoded.
template <class Node>
std::string RoundTrip(int32_t (*filter)(XDR *, Node *), std::string bytes, int32_t result) {
  Node first = {};
  XDR xdrs;
  xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
  EXPECT_EQ(filter(&xdrs, &first), result);
  std::string encoded(bytes.size(), '#');
  xdrmem_create(&xdrs, encoded.data(), static_cast<u_int>(encoded.size()), XDR_ENCODE);
  EXPECT_EQ(filter(&xdrs, &first), result);
  xdrs.x_op = XDR_FREE;
  EXPECT_EQ(filter(&xdrs, &first), TRUE);
  return encoded;
}

TEST_F(DeviceFiles, OfAnyLengthAreCodedWithoutRecursion) {
  std::string crash;
  for (size_t i = 1; i < kManyRecords; ++i) crash += XdrWords({1});
  crash += XdrWords({0});
  for (size_t i = 0; i < kManyRecords; ++i) crash += CrashBytes("", 0);
  const std::string kiva = KivaFile(std::vector<std::string>(kManyRecords, KivaBytes("", 0)));
  EXPECT_TRUE(RoundTrip(xdr_dev_crashinfo_list, crash, TRUE) == crash);
  EXPECT_TRUE(RoundTrip(xdr_dev_kivainfo_list, kiva, FALSE) == kiva);
  Write(ZOR_PATH_KIVA_LIST, kiva);
  EXPECT_EQ(ZOR_UPG_GetKivaInfoListCount(), kManyRecords);
}

TEST_F(DeviceFiles, ThatAreCutAnywhereKeepTheirWholeRecords) {
  const std::string crash = XdrWords({1, 0}) + CrashBytes("B", 2) + CrashBytes("A", 1);
  for (size_t cut = 0; cut < crash.size(); ++cut) {
    Write(ZOR_PATH_CRASH_LIST, crash.substr(0, cut));
    EXPECT_EQ(CrashMacs().size(), cut < 8 + CrashBytes("B", 2).size() ? 0u : 1u) << cut;
  }
  const std::string kiva = XdrWords({1, 1, 0}) + KivaBytes("B", 2) + KivaBytes("A", 1);
  for (size_t cut = 0; cut <= kiva.size(); ++cut) {
    Write(ZOR_PATH_KIVA_LIST, kiva.substr(0, cut));
    Capture output;
    const size_t kept = KivaMacs().size();
    const size_t lost = output.Text().size() / std::string("Alloc kiva info list error.").size();
    EXPECT_EQ(kept, (cut == kiva.size() ? 2u : 0u) + (cut >= 12 + 44 && cut < kiva.size() ? 1u : 0u)) << cut;
    EXPECT_EQ(lost, cut < 12 ? 0 : 2 - kept) << cut;
  }
}

TEST_F(DeviceFiles, ThatClaimTooMuchHoldNothingAndCanBeWrittenAnew) {
  std::string markers;
  for (int i = 0; i < 300000; ++i) markers += XdrWords({1});
  const struct {
    std::string crash, kiva;
  } claims[] = {{markers, markers},
                {markers + XdrWords({0}), markers + XdrWords({0})},
                {XdrWords({0, 0xffffffff}), XdrWords({1, 0, 1, 2, 3, 4, 5, 0xffffffff})},
                {XdrWords({0, 0x7fffffff}), XdrWords({1, 0, 1, 2, 3, 4, 5, 0x7fffffff})},
                {"no list at all", "no list at all"}};
  for (const auto &claim : claims) {
    Write(ZOR_PATH_CRASH_LIST, claim.crash);
    EXPECT_THAT(CrashMacs(), IsEmpty());
    Write(ZOR_PATH_KIVA_LIST, claim.kiva);
    EXPECT_THAT(KivaMacs(), IsEmpty());
  }
  EXPECT_EQ(AddKiva("A", 1) | AddCrash("A", 1), ZOR_OK);
  EXPECT_THAT(KivaMacs(), ElementsAre("A"));
}

TEST_F(DeviceFiles, ThatCannotBeWrittenWholeKeepTheOldList) {
  AddKiva("A", 1);
  AddCrash("A", 1);
  const std::string large(100000, 'l');
  const rlimit small = {50000, RLIM_INFINITY};
  rlimit before;
  getrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  EXPECT_EQ(AddCrash(large, 1), ZOR_CRASH_E_FILE);
  EXPECT_EQ(AddKiva(large, 1), ZOR_KIVA_E_FILE);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(Read(ZOR_PATH_CRASH_LIST), XdrWords({0}) + CrashBytes("A", 1));
  EXPECT_EQ(Read(ZOR_PATH_KIVA_LIST), KivaFile({KivaBytes("A", 1)}));
  const auto entries = std::filesystem::directory_iterator(root_.Path("/var/kiva"));
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1) << "a half-written file was left behind";
}

}  // namespace
}  // namespace zor::test
