#include <zor/mlog.h>
#include <zor/wlan.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

using Mac = std::array<uint8_t, 6>;

constexpr uint32_t kFailure = 1;
constexpr uint32_t kTextSize = 18;
constexpr uint32_t kOffsetLimit = 14;
constexpr uint32_t kWlanDistance = 9;
constexpr uint32_t kWlanAlignment = 4;

// The texts end in "!!" and the line adds another pair: field scripts search for all four.
constexpr char kBadArgument[] = "Input parameters is NULL pointer, and return here!!";
constexpr char kInnerFailure[] = "Function returns NOK, and return here!!";

// The line is the caller's.
uint32_t Fail(const char *function, uint32_t status, const char *text, int line = __builtin_LINE()) {
  mlog_print("wlancomapi", ZOR_MLOG_ERROR, "<%s %d> %x %s!!", function, line, status, text);
  return kFailure;
}

bool IsUsable(const void *input, const void *output, uint32_t outputLength, std::size_t needed) {
  return input != nullptr && output != nullptr && outputLength >= needed;
}

uint32_t NumberOf(const uint8_t *mac) {
  return static_cast<uint32_t>(mac[3]) << 16 | static_cast<uint32_t>(mac[4]) << 8 | mac[5];
}

// Reads all of the input before it writes: both may be one buffer.
void WriteMac(const uint8_t *vendor, uint32_t number, uint8_t *output) {
  const Mac mac = {vendor[0],
                   vendor[1],
                   vendor[2],
                   static_cast<uint8_t>(number >> 16),
                   static_cast<uint8_t>(number >> 8),
                   static_cast<uint8_t>(number)};
  std::memcpy(output, mac.data(), mac.size());
}

// The base of an interface's address.
enum class Origin { kBase, kWlan };

// An address at an offset from its base.
uint32_t Derive(const char *function, Origin origin, const uint8_t *baseMac, uint32_t offset, uint8_t *output,
                uint32_t outputLength) {
  if (!IsUsable(baseMac, output, outputLength, sizeof(Mac))) return Fail(function, kFailure, kBadArgument);
  Mac from = {};
  uint32_t status = 0;
  if (origin == Origin::kWlan) {
    status = ZOR_WLAN_GetWlanMacFromBaseMac(baseMac, from.data(), from.size());
  } else {
    std::memcpy(from.data(), baseMac, from.size());
  }
  if (status == 0) status = ZOR_WLAN_IncreaseMacValByOffset(from.data(), offset, output, outputLength);
  return status == 0 ? 0 : Fail(function, status, kInnerFailure);
}

}  // namespace

uint32_t ZOR_WLAN_GetWlanMacFromBaseMac(const uint8_t *baseMac, uint8_t *output, uint32_t outputLength) {
  if (!IsUsable(baseMac, output, outputLength, sizeof(Mac))) return Fail(__func__, kFailure, kBadArgument);
  const uint32_t number = NumberOf(baseMac) + kWlanDistance;
  WriteMac(baseMac, number - number % kWlanAlignment, output);
  return 0;
}

uint32_t ZOR_WLAN_GetWlanDownHiddenIntfMacFromBaseMac(const uint8_t *baseMac, uint8_t *output, uint32_t outputLength) {
  return Derive(__func__, Origin::kWlan, baseMac, 1, output, outputLength);
}

uint32_t ZOR_WLAN_GetWlanUpIntfMacFromBaseMac(const uint8_t *baseMac, uint8_t *output, uint32_t outputLength) {
  return Derive(__func__, Origin::kWlan, baseMac, 3, output, outputLength);
}

uint32_t ZOR_WLAN_GetWlan5gMacFromBaseMac(const uint8_t *baseMac, uint8_t *output, uint32_t outputLength) {
  return Derive(__func__, Origin::kWlan, baseMac, 4, output, outputLength);
}

// The radio's "up" interface uses the 5 GHz address itself.
uint32_t ZOR_WLAN_GetWlan5gUpIntfMacFromBaseMac(const uint8_t *baseMac, uint8_t *output, uint32_t outputLength) {
  return Derive(__func__, Origin::kWlan, baseMac, 4, output, outputLength);
}

uint32_t ZOR_WLAN_GetInternetEthUpIntfMacFromBaseMac(const uint8_t *baseMac, uint8_t *output, uint32_t outputLength) {
  return Derive(__func__, Origin::kBase, baseMac, 1, output, outputLength);
}

uint32_t ZOR_WLAN_GetQuorelEthUpIntfMacFromBaseMac(const uint8_t *baseMac, uint8_t *output, uint32_t outputLength) {
  return Derive(__func__, Origin::kBase, baseMac, 2, output, outputLength);
}

uint32_t ZOR_WLAN_IncreaseMacValByOffset(const uint8_t *mac, uint32_t offset, uint8_t *output, uint32_t outputLength) {
  if (!IsUsable(mac, output, outputLength, sizeof(Mac)) || offset >= kOffsetLimit) {
    return Fail(__func__, kFailure, kBadArgument);
  }
  WriteMac(mac, NumberOf(mac) + offset, output);
  return 0;
}

uint32_t ZOR_WLAN_GetWlan5gDownHiddenIntfMacFrom5gMainMac(const char *mac, char *output, uint32_t outputLength) {
  // Position 1 decides whether the address is a group address, so it is never changed.
  constexpr std::array<std::size_t, 11> kPositions = {9, 10, 12, 13, 7, 6, 4, 3, 0, 15, 16};
  if (!IsUsable(mac, output, outputLength, kTextSize)) return Fail(__func__, kFailure, kBadArgument);
  const std::size_t length = strnlen(mac, outputLength - 1);
  std::memmove(output, mac, length);
  output[length] = '\0';
  if (length + 1 < kTextSize) std::memset(output + length + 1, 0, kTextSize - length - 1);
  const auto *at = std::find_if(kPositions.begin(), kPositions.end(), [=](std::size_t i) { return output[i] != 'F'; });
  if (at != kPositions.end()) output[*at] = 'F';
  return 0;
}
