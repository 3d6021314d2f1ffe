// Encrypted exports of the configuration: the input is a file.
#include <algorithm>
#include <span>
#include <string_view>

#include "cms/seal.h"
#include "fuzz.h"
#include "programs/limits.h"

namespace {

using zor::fuzz::Require;
using namespace zor::cms;  // NOLINT(google-build-using-namespace): the code under test

constexpr std::string_view kPassphrase = "a passphrase";
constexpr uint64_t kQuickWork = 1024;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const auto file = std::as_bytes(std::span(data, size));
  const auto passphrase = std::as_bytes(std::span(kPassphrase));
  const auto head = ReadSealHead(file);
  Secret content;
  if (!head) {
    Require(Unseal(file, passphrase, &content) == Unsealed::kUnknown && content.empty(), "an unknown file is refused");
    return 0;
  }
  Require(head->memory() <= zor::limits::cms::kKeyMemory && head->work() <= zor::limits::cms::kKeyWork,
          "making the key costs a bounded time and memory");
  Require(std::ranges::equal(WriteSealHead(*head), file.first(kSealHeadSize)), "no byte of the head is ignored");
  if (head->work() > kQuickWork) return 0;
  if (Unseal(file, passphrase, &content) != Unsealed::kGood) {
    Require(content.empty(), "nothing is given out that is not authentic");
    return 0;
  }
  const auto sealed = Seal(*head, content, passphrase);
  Require(sealed && std::ranges::equal(*sealed, file), "only a file as it was sealed is authentic");
  return 0;
}
