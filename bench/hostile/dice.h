// Chance with a seed: the same seed throws the same dice.
#ifndef BENCH_HOSTILE_DICE_H
#define BENCH_HOSTILE_DICE_H

#include <cstdint>
#include <iterator>
#include <random>
#include <string>

namespace zor::hostile {

class Dice {
 public:
  explicit Dice(uint64_t seed) : engine_(seed) {}

  uint32_t Word() { return static_cast<uint32_t>(engine_()); }
  uint32_t Below(std::size_t count) { return Word() % static_cast<uint32_t>(count); }
  bool OneIn(uint32_t count) { return Below(count) == 0; }
  template <typename Items>
  const auto &Pick(const Items &items) {
    return *std::next(std::begin(items), Below(std::size(items)));
  }
  // A form of a table, as often as its weight says.
  template <typename Forms>
  const auto &PickWeighted(const Forms &forms) {
    uint32_t sum = 0;
    for (const auto &form : forms) sum += form.weight;
    uint32_t at = Below(sum);
    auto form = std::begin(forms);
    for (; at >= form->weight; ++form) at -= form->weight;
    return *form;
  }

  // One of the values at which readers go wrong, a small one, or any.
  uint32_t Number();
  std::string Noise(std::size_t length);
  // Changes bits, bytes or numbers, or the length.
  void Damage(std::string &bytes);

 private:
  void Replace(std::string &bytes);

  std::mt19937_64 engine_;
};

// The bytes of a record of a wire format.
template <typename Record>
std::string BytesOf(const Record &record) {
  return {reinterpret_cast<const char *>(&record), sizeof record};
}

}  // namespace zor::hostile

#endif
