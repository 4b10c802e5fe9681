#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_TEXTPOOL_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_TEXTPOOL_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillon {

/// Texts laid end to end, each kept once: the constants of 10,000 formats are a few thousand. For the time of building;
/// what remains is the memory with all texts in it, and whoever kept one knows its place and size.
class TextPool {
 public:
  TextPool() : known_(256) {}

  /// Where `text` is. Throws std::length_error beyond 4 GiB.
  std::uint32_t keep(std::string_view text);

  /// All texts, with room behind them for one load of 16 bytes.
  std::string finish();

 private:
  /// A place of the hash table (open addressing, linear probing); free when the size is 0.
  struct Known {
    std::uint32_t text;
    std::uint32_t size;
    std::uint32_t hash;
  };

  void grow();

  std::string texts_;
  std::vector<Known> known_;
  std::size_t count_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_TEXTPOOL_H_
