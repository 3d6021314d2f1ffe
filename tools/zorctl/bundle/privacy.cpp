#include "zorctl/bundle/privacy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/blur.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "common/ascii.h"
#include "common/unique_fd.h"
#include "zorctl/exit_code.h"

namespace zor::ctl {
namespace {

constexpr std::array<std::string_view, 9> kSecretWords = {"PASSWORD", "PASSWD", "PASSPHRASE", "SECRET", "TOKEN",
                                                          "PSK",      "KEY",    "CREDENTIAL", "PRIVATE"};
constexpr std::array<std::string_view, 4> kKeyEndings = {".P12", ".PFX", ".JKS", ".KEYTAB"};
constexpr std::string_view kLeftOut = "(left out)";
// The library masks pieces of this size, and does not see an address that is split between two.
constexpr size_t kPieceSize = 2048;

std::string Upper(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(), AsciiUpper);
  return upper;
}

bool HoldsSecretWord(std::string_view text) {
  const std::string upper = Upper(text);
  return std::any_of(kSecretWords.begin(), kSecretWords.end(),
                     [&](std::string_view word) { return upper.find(word) != upper.npos; });
}

std::string_view Trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r\"'");
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\"',") - first + 1);
}

// The word that ends before a position: letters, digits and the punctuation of names.
std::string_view WordBefore(std::string_view line, size_t end) {
  const auto isWord = [](char each) {
    return (each >= '0' && each <= '9') || (AsciiUpper(each) >= 'A' && AsciiUpper(each) <= 'Z') || each == '_' ||
           each == '-' || each == '.';
  };
  while (end > 0 && (line[end - 1] == ' ' || line[end - 1] == '\t' || line[end - 1] == '"' || line[end - 1] == '\''))
    --end;
  size_t begin = end;
  while (begin > 0 && isWord(line[begin - 1])) --begin;
  return line.substr(begin, end - begin);
}

// The end of a value that begins at a position: its closing quote, or the end of the line for a setting's value, which
// may contain blanks.
size_t ValueEnd(std::string_view line, size_t begin, bool toEnd) {
  const bool quoted = begin < line.size() && (line[begin] == '"' || line[begin] == '\'');
  if (quoted) {
    for (size_t i = begin + 1; i < line.size(); ++i) {
      if (line[i] == '\\') {
        ++i;
      } else if (line[i] == line[begin]) {
        return i + 1;
      }
    }
    return line.size();
  }
  return toEnd ? line.size() : std::min(line.find_first_of(" \t,;&}]", begin), line.size());
}

// A value that is a path names a file; the file itself is judged by its own name.
bool IsHarmless(std::string_view value) {
  const std::string_view plain = Trimmed(value);
  return plain.empty() || plain.front() == '/' || plain == "null" || plain == "true" || plain == "false";
}

std::string WithoutValues(std::string_view line) {
  std::string kept;
  size_t done = 0;
  for (size_t sign = line.find_first_of("=:"); sign != line.npos; sign = line.find_first_of("=:", sign + 1)) {
    if (sign < done) continue;
    const std::string_view word = WordBefore(line, sign);
    if (word.empty() || !HoldsSecretWord(word)) continue;
    const size_t begin = line.find_first_not_of(" \t", sign + 1);
    if (begin == line.npos) break;
    const bool isSetting = Trimmed(line.substr(0, sign)) == word && line[sign] == '=';
    const size_t end = ValueEnd(line, begin, isSetting);
    if (IsHarmless(line.substr(begin, end - begin))) continue;
    const bool quoted = line[begin] == '"' || line[begin] == '\'';
    const std::string_view quote = line.substr(begin, quoted ? 1 : 0);
    kept.append(line.substr(done, begin - done)).append(quote).append(kLeftOut).append(quote);
    done = end;
  }
  return kept.append(line.substr(done));
}

// "://USER:PASSWORD@"
std::string WithoutPassword(std::string line) {
  constexpr std::string_view kStart = "://";
  for (size_t at = line.find(kStart); at != line.npos; at = line.find(kStart, at + 1)) {
    const size_t begin = at + kStart.size(), end = std::min(line.find_first_of(" /\t\"'", begin), line.size());
    const size_t host = line.rfind('@', end - 1);
    const size_t colon = line.find(':', begin);
    if (host == line.npos || host < begin || colon >= host) continue;
    line.replace(colon + 1, host - colon - 1, kLeftOut);
  }
  return line;
}

// Calls visit for each line with its end.
template <class Visit>
void ForEachLine(std::string_view text, Visit visit) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    visit(text.substr(0, end));
    text.remove_prefix(end);
  }
}

bool IsHex(char each) {
  return (each >= '0' && each <= '9') || (AsciiUpper(each) >= 'A' && AsciiUpper(each) <= 'F');
}

// Digits on both sides of what separates the parts of an address, or two colons.
bool MayHoldAddress(std::string_view text) {
  for (size_t i = 1; i + 1 < text.size(); ++i) {
    const char each = text[i];
    if (each == ':' && text[i + 1] == ':') return true;
    if ((each == ':' || each == '.' || each == '-') && IsHex(text[i - 1]) && IsHex(text[i + 1])) return true;
  }
  return text.starts_with("::");
}

// How much of a line is masked at once: no more than a piece, and no part of an address.
size_t PieceLength(std::string_view line) {
  if (line.size() <= kPieceSize) return line.size();
  const size_t blank = line.substr(0, kPieceSize).find_last_of(" \t,;\"'{}[]()<>=|");
  return blank == line.npos ? kPieceSize : blank + 1;
}

class Masker {
 public:
  explicit Masker(const std::string &path)
      : path_(path), file_(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR)) {}

  std::string Mask(std::string_view piece) const {
    std::string bytes(piece);
    std::replace(bytes.begin(), bytes.end(), '\0', ' ');  // which the library takes for the end
    const auto size = static_cast<ssize_t>(bytes.size());
    const bool stored =
        ::ftruncate(file_.get(), 0) == 0 && ::pwrite(file_.get(), bytes.data(), bytes.size(), 0) == size;
    if (!stored || ZOR_Blur_File(path_.c_str()) != ZOR_BLUR_OK ||
        ::pread(file_.get(), bytes.data(), bytes.size(), 0) != size) {
      throw Failure(kExitFailure, std::string("cannot mask a text: ") + std::strerror(errno), "");
    }
    return bytes;
  }

 private:
  std::string path_;
  UniqueFd file_;
};

}  // namespace

std::string SecretReason(std::string_view name, std::string_view content) {
  const std::string upper = Upper(name);
  const bool isKey = std::any_of(kKeyEndings.begin(), kKeyEndings.end(),
                                 [&](std::string_view ending) { return upper.ends_with(ending); });
  if (isKey || HoldsSecretWord(name)) return "a secret by its name";
  if (content.find("PRIVATE KEY") != content.npos) return "it holds a private key";
  return content.find('\0') == content.npos ? "" : "not a text";
}

std::set<std::string> SecretPathsIn(std::string_view settings) {
  std::set<std::string> paths;
  ForEachLine(settings, [&](std::string_view line) {
    const size_t sign = line.find('=');
    if (sign == line.npos || !HoldsSecretWord(line.substr(0, sign))) return;
    const std::string_view value = Trimmed(line.substr(sign + 1, line.find('\n') - sign - 1));
    if (value.starts_with('/')) paths.emplace(value);
  });
  return paths;
}

std::string WithoutSecrets(std::string_view text) {
  std::string kept;
  bool inKey = false;  // of several lines, in PEM
  ForEachLine(text, [&](std::string_view line) {
    const bool isKeyLine = line.find("PRIVATE KEY") != line.npos;
    if (isKeyLine) inKey = line.find("BEGIN") != line.npos;
    if (inKey || isKeyLine) {
      if (inKey && isKeyLine) kept.append(kLeftOut).append("\n");
      return;
    }
    const std::string_view plain = line.substr(0, line.size() - (line.ends_with('\n') ? 1 : 0));
    kept += WithoutPassword(WithoutValues(plain));
    if (line.ends_with('\n')) kept += '\n';
  });
  return kept;
}

std::string Masked(std::string_view text, const std::string &scratch) {
  const Masker masker(scratch);
  std::string masked;
  ForEachLine(text, [&](std::string_view line) {
    while (!line.empty()) {
      const std::string_view piece = line.substr(0, PieceLength(line));
      masked += MayHoldAddress(piece) ? masker.Mask(piece) : std::string(piece);
      line.remove_prefix(piece.size());
    }
  });
  return masked;
}

}  // namespace zor::ctl
