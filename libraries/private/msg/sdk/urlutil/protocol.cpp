// Protocols and their default ports: four built in, then those of the application, whose arrays may change at any time.
#include <zor/platform/text.h>
#include <zor/url.h>

#include <array>

const char *const *g_apcExtendProtocols = nullptr;
const uint32_t *g_aulExtendPorts = nullptr;

namespace {

constexpr int32_t kBuiltInCount = ZOR_URL_FIRST_EXTENSION;
constexpr std::array<const char *, kBuiltInCount + 1> kNames = {"HTTP", "HTTPS", "FTP", "TFTP", nullptr};
// 63 is not the registered port of TFTP; on the gateway it has always been the default.
constexpr std::array<uint32_t, kBuiltInCount> kPorts = {80, 443, 21, 63};

}  // namespace

int32_t ZOR_UTIL_GetProtocolTypeIdxFromStr(const char *name) {
  const int32_t builtIn = ZOR_UTIL_GetIdxFromStr(kNames.data(), name);
  if (builtIn >= 0) return builtIn;
  const int32_t extension = ZOR_UTIL_GetIdxFromStr(g_apcExtendProtocols, name);
  return extension < 0 ? -1 : kBuiltInCount + extension;
}

const char *ZOR_UTIL_GetProtocolTypeStrFromIdx(int32_t index) {
  if (index < kBuiltInCount) return ZOR_UTIL_GetStrFromIdx(kNames.data(), index);
  return ZOR_UTIL_GetStrFromIdx(g_apcExtendProtocols, index - kBuiltInCount);
}

uint32_t ZOR_UTIL_GetDftPortByProtocolIdx(int32_t index) {
  if (index < 0) return 0;
  if (index < kBuiltInCount) return kPorts[static_cast<std::size_t>(index)];
  const uint32_t *port = g_aulExtendPorts;
  if (port == nullptr) return 0;
  // Walked, not indexed: the array may be shorter than that of the names.
  for (int32_t left = index - kBuiltInCount; left > 0 && *port != 0; --left) ++port;
  return *port;
}
