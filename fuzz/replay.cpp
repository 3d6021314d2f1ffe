// Replays a corpus: replay DIRECTORY. Each input is tried whole, truncated at every byte, and with every byte replaced
// in turn by the boundary values of decoders.
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

void RunVaried(Input input) {
  constexpr std::size_t kMaxVaried = 1024;
  Run(input.begin(), input.end());
  for (auto at = input.begin(); input.size() <= kMaxVaried && at != input.end(); ++at) {
    Run(input.begin(), at);
    const std::uint8_t kept = *at;
    for (const int replacement : {0x00, 0x01, 0x3f, 0x40, 0x80, 0xc0, 0xff, +'%', +':', +'/'}) {
      *at = static_cast<std::uint8_t>(replacement);
      Run(input.begin(), input.end());
    }
    *at = kept;
  }
}

}  // namespace

int main(int argc, char **argv) {
  int replayed = 0;
  zor::fuzz::Require(argc == 2 && std::freopen("/dev/null", "w", stdout) != nullptr, "usage: replay DIRECTORY");
  for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream file(entry.path(), std::ios::binary);
    RunVaried(Input(std::istreambuf_iterator<char>(file), {}));
    ++replayed;
  }
  zor::fuzz::Require(replayed > 0, "a corpus holds inputs");
}
