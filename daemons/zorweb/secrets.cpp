#include "zorweb/secrets.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/sha.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <span>

#include "common/unique_fd.h"
#include "common/write_all.h"
#include "programs/limits.h"
#include "programs/messages/hex.h"
#include "programs/tls/secret_file.h"

namespace zor::web {
namespace {

constexpr mode_t kTokenMode = 0640;

bool MakeToken(const std::string &path) {
  const UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kTokenMode));
  const std::string text = MakeSecret() + '\n';
  // The umask is for files that are nobody else's.
  if (file.valid() && ::fchmod(file.get(), kTokenMode) == 0 && WriteAll(file.get(), std::as_bytes(std::span(text)))) {
    return true;
  }
  const int error = errno;
  if (file.valid()) ::unlink(path.c_str());
  errno = error;
  return false;
}

}  // namespace

std::string MakeSecret() {
  std::array<char, 32> bytes;
  // Only a signal handler could interrupt it, and it never gives less of so few.
  while (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    if (errno != EINTR) std::abort();
  }
  return messages::ToHex({bytes.data(), bytes.size()});
}

// Digests, so that not even the length shows.
bool IsSame(std::string_view secret, std::string_view text) {
  const auto digest = [](std::string_view of) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> result;
    ::SHA256(reinterpret_cast<const unsigned char *>(of.data()), of.size(), result.data());
    return result;
  };
  const auto first = digest(secret), second = digest(text);
  return ::CRYPTO_memcmp(first.data(), second.data(), first.size()) == 0;
}

std::optional<std::string> ReadToken(const std::string &path, daemon::ProblemLog &log) {
  if (::access(path.c_str(), F_OK) != 0 && errno == ENOENT && !MakeToken(path)) {
    log.PrintErrno("token_file = %s: cannot be made", path.c_str());
    return std::nullopt;
  }
  tls::SecretFile file;
  if (!file.Read("token_file", path, log)) return std::nullopt;
  std::string_view text = file.text();
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.remove_suffix(1);
  if (text.size() >= limits::zorweb::kLeastToken) return std::string(text);
  log.Print("token_file = %s: the token has fewer than %zu characters", path.c_str(), limits::zorweb::kLeastToken);
  return std::nullopt;
}

}  // namespace zor::web
