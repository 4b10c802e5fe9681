#ifndef QUILLON_TESTS_MATCH_SUPPORT_RANDOM_H_
#define QUILLON_TESTS_MATCH_SUPPORT_RANDOM_H_

#include <cstddef>
#include <cstdint>
#include <random>

namespace quillon {

/// Numbers that follow from a seed, the same everywhere.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  /// From 0 to `n` - 1; `n` is at least 1.
  std::size_t below(std::size_t n) { return engine_() % n; }
  std::size_t between(std::size_t least, std::size_t most) { return least + below(most - least + 1); }
  bool chance(std::size_t percent) { return below(100) < percent; }

  template <class Container>
  const auto& pick(const Container& from) {
    return *(std::begin(from) + static_cast<std::ptrdiff_t>(below(std::size(from))));
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace quillon

#endif  // QUILLON_TESTS_MATCH_SUPPORT_RANDOM_H_
