// Masking of texts and files: a byte that sets the input's offset in its file, and the input.
#include <regex.h>
#include <zor/blur.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "fuzz.h"
#include "support/temp_root.h"

namespace {

using zor::fuzz::Require;

class Expression {
 public:
  explicit Expression(const char *pattern) {
    Require(::regcomp(&expression_, pattern, REG_EXTENDED | REG_NOSUB) == 0, "a pattern compiles");
  }
  Expression(const Expression &) = delete;
  Expression &operator=(const Expression &) = delete;
  ~Expression() { ::regfree(&expression_); }

  bool Matches(const std::string &text) const { return ::regexec(&expression_, text.c_str(), 0, nullptr, 0) == 0; }

 private:
  regex_t expression_;
};

bool IsMaskedFrom(std::string_view masked, std::string_view text) {
  return masked.size() == text.size() &&
         std::equal(masked.begin(), masked.end(), text.begin(), [](char m, char t) { return m == t || m == '*'; });
}

struct Case {
  const char *(*mask)(const char *);
  Expression gone;  // no trace of it may be left
};

void CheckText(const std::string &text) {
  static const std::array<Case, 4> kCases = {{
      {ZOR_Blur_Mac, Expression("([0-9A-Fa-f]{2}[:-]){5}([0-9A-Fa-f]{2})")},
      {ZOR_Blur_Ip, Expression("([0-9]{1,3}[.]){3}[0-9]{1,3}")},
      {ZOR_Blur_Ipv6, Expression("::|([0-9A-Fa-f]{1,4}:){7}[0-9A-Fa-f]")},
      {ZOR_Blur_Uuid, Expression("(([0-9A-Fa-f]{4}[-]){3})([0-9A-Fa-f]{12})")},
  }};
  const std::string cut = text.substr(0, 259);
  for (const Case &each : kCases) {
    const std::string masked = each.mask(text.c_str());
    Require(IsMaskedFrom(masked, cut), "masking writes stars and nothing else");
    Require(!each.gone.Matches(masked), "what is looked for is gone");
    Require(masked == each.mask(masked.c_str()), "what is masked stays as it is");
  }
  Require(std::strlen(ZOR_Blur_SSID(text.c_str())) == std::min<size_t>(text.size(), 35), "an SSID keeps its length");
  Require(std::strlen(ZOR_Blur_Usb_Account(text.c_str())) <= 8, "an account has at most 8 characters");
}

void CheckFile(const std::string &content) {
  static const zor::test::TempRoot root;
  const std::string path = root.Path("/log.txt");
  std::filesystem::remove(path);  // some file systems flush a file that is recreated in place
  std::ofstream(path, std::ios::binary) << content;
  Require(ZOR_Blur_File(path.c_str()) == ZOR_BLUR_OK, "a file can be masked");
  std::stringstream masked;
  masked << std::ifstream(path, std::ios::binary).rdbuf();
  Require(IsMaskedFrom(masked.str(), content), "a masked file has stars and nothing else");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  CheckText(zor::fuzz::TextOf(data + 1, size - 1));
  const std::size_t inFront = data[0] < 0x80 ? data[0] : 2048 - std::size_t{data[0]} % 64;
  CheckFile(std::string(inFront, ' ').append(data + 1, data + size));
  return 0;
}
