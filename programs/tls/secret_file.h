// Files whose content others may not learn: keys and passwords.
#ifndef PROGRAMS_TLS_SECRET_FILE_H
#define PROGRAMS_TLS_SECRET_FILE_H

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "programs/problem_log.h"

namespace zor::tls {

// The content of such a file, which leaves no trace in memory.
class SecretFile {
 public:
  SecretFile() = default;
  SecretFile(const SecretFile &) = delete;
  SecretFile &operator=(const SecretFile &) = delete;
  ~SecretFile();

  // The file must belong to root or to this user. Its group may read it, so that a key that belongs to root serves a
  // program that does not run as root; others may not. False, with a line "SETTING = PATH: why".
  bool Read(const char *setting, const std::string &path, daemon::ProblemLog &log);
  std::string_view text() const { return {text_.data(), length_}; }

 private:
  bool ReadAll(int file);

  std::array<char, 32768> text_{};
  std::size_t length_ = 0;
};

}  // namespace zor::tls

#endif
