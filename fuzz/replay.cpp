// Replays a corpus: replay DIRECTORY [BYTES]. Each input is tried whole, truncated at every byte, and with every byte
// replaced in turn by the boundary values of decoders; or at that many bytes, spread evenly over the input.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz.h"

namespace {

using Input = std::vector<std::uint8_t>;

// Copies the input to a block of exactly its size, so that the sanitizer catches a read past the end.
void Run(Input::const_iterator first, Input::const_iterator last) {
  const Input input(first, last);
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

void RunVaried(Input input, std::size_t bytes) {
  Run(input.begin(), input.end());
  const std::size_t step = input.size() / bytes + 1;
  for (std::size_t at = 0; at < input.size(); at += step) {
    Run(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(at));
    const std::uint8_t kept = input[at];
    for (const int replacement : {0x00, 0x01, 0x3f, 0x40, 0x80, 0xc0, 0xff, +'%', +':', +'/'}) {
      input[at] = static_cast<std::uint8_t>(replacement);
      Run(input.begin(), input.end());
    }
    input[at] = kept;
  }
}

}  // namespace

int main(int argc, char **argv) {
  int replayed = 0;
  zor::fuzz::Require((argc == 2 || argc == 3) && std::freopen("/dev/null", "w", stdout) != nullptr,
                     "usage: replay DIRECTORY [BYTES]");
  const std::size_t bytes = std::strtoul(argc == 3 ? argv[2] : "1024", nullptr, 10);
  zor::fuzz::Require(bytes > 0, "at least one byte");
  for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream file(entry.path(), std::ios::binary);
    RunVaried(Input(std::istreambuf_iterator<char>(file), {}), bytes);
    ++replayed;
  }
  zor::fuzz::Require(replayed > 0, "a corpus holds inputs");
}
