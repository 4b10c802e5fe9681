#ifndef QUILLON_AUTHORING_EXPLAIN_LIKENESS_H_
#define QUILLON_AUTHORING_EXPLAIN_LIKENESS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "authoring/explain/Alignment.h"

namespace quillon {

/// A quick look at which formats of many may be near a message: by which of their constants stand in it, wherever. A
/// constant counts by its length and by how few formats have it. For those that come first align() says more.
///
/// Constant once all formats are added; any number of threads may then ask.
class Likeness {
 public:
  /// Of the next format.
  void add(const std::vector<Part>& parts);

  /// The places of the `most` formats that are likest to `message`, the likest first.
  std::vector<std::uint32_t> likest(std::string_view message, std::size_t most) const;

 private:
  struct Constant {
    std::string text;
    std::uint32_t formats = 0;  ///< That have it.
  };

  static float share(std::string_view text, std::string_view message);

  std::vector<Constant> constants_;  ///< Each once.
  std::unordered_map<std::string, std::uint32_t> byText_;
  std::vector<std::vector<std::uint32_t>> formats_;  ///< The constants of each format.
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_EXPLAIN_LIKENESS_H_
