#include "zorctl/input_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "zorctl/exit_code.h"
#include "zorctl/text.h"

namespace zor::ctl {

std::string ReadInputFile(const std::string &path, size_t limit) {
  std::ifstream file;
  if (path != "-") file.open(path, std::ios::binary);
  std::istream &input = path == "-" ? std::cin : file;
  std::string bytes(limit + 1, '\0');
  if (input) input.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (input.bad() || (input.fail() && !input.eof())) {
    throw Failure(kExitUsage, "cannot read " + Escape(path) + ": " + std::strerror(errno), "name a readable file");
  }
  bytes.resize(static_cast<size_t>(input.gcount()));
  if (bytes.size() <= limit) return bytes;
  throw Failure(kExitUsage, Escape(path) + " is too large", "the limit is " + std::to_string(limit) + " bytes");
}

}  // namespace zor::ctl
