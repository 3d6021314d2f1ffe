#include "hostile/dice.h"

#include <algorithm>
#include <cstring>

namespace zor::hostile {

uint32_t Dice::Number() {
  static constexpr uint32_t kBoundaries[] = {0,      1,       2,       11,         12,         39,         40,
                                             255,    256,     260,     2047,       2048,       2049,       0xffff,
                                             0x1000, 0x10000, 0xfffff, 0x00800000, 0x7fffffff, 0x80000000, 0xffffffff};
  switch (Below(4)) {
    case 0:
      return Below(64);
    case 1:
      return Word();
    default:
      return Pick(kBoundaries);
  }
}

std::string Dice::Noise(std::size_t length) {
  std::string noise(length, '\0');
  std::generate(noise.begin(), noise.end(), [this] { return static_cast<char>(Word()); });
  return noise;
}

void Dice::Damage(std::string &bytes) {
  if (bytes.empty() || OneIn(8)) {
    bytes += Noise(1 + Below(64));
  } else if (OneIn(6)) {
    bytes.resize(Below(bytes.size()));
  } else {
    for (uint32_t times = 1 + Below(4); times > 0; --times) Replace(bytes);
  }
}

void Dice::Replace(std::string &bytes) {
  const std::size_t at = Below(bytes.size());
  if (OneIn(2)) {
    bytes[at] = static_cast<char>(bytes[at] ^ 1 << Below(8));
  } else if (const std::size_t word = at / 4 * 4; OneIn(2) && word + 4 <= bytes.size()) {
    const uint32_t number = Number();
    std::memcpy(bytes.data() + word, &number, sizeof number);
  } else {
    static constexpr char kBytes[] = {'\0', '\n', '%', '/', '.', '|', '*', '{', '"', '\x7f', '\xc2', '\xff'};
    bytes[at] = Pick(kBytes);
  }
}

}  // namespace zor::hostile
