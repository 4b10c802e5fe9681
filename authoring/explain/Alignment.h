#ifndef QUILLON_AUTHORING_EXPLAIN_ALIGNMENT_H_
#define QUILLON_AUTHORING_EXPLAIN_ALIGNMENT_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/common/FormatComponent.h"

namespace quillon {

/// A component of a format string, for those who show it beside a message.
struct Part {
  ComponentKind kind;
  std::string text;  ///< As it stands in the format string; a constant is in UTF-8.
  int variable;      ///< The N of its $N; 0 for one that captures nothing.

  bool isField() const { return variable > 0; }
  bool isConstant() const { return kind == ComponentKind::kConstant; }
};

/// A stretch of a message and what stands against it in a format string. Places are bytes of the message.
struct AlignedPiece {
  enum class State {
    kFits,
    kDiffers,  ///< Other text stands where the format has this one.
    kMissing,  ///< The message has nothing for it: `from` is `to`.
    kExtra,    ///< The format has nothing for it: there is no part, and no text.
  };

  State state;
  std::size_t part;  ///< Which of the parts; of text that is extra, the one in or before which it stands.
  std::uint32_t from;
  std::uint32_t to;
  std::string
      text;  ///< What of a constant stands here; of another part that does not fit, an example of what it describes.
};

/// How much a message looks like what a format describes, and where it departs from it.
struct Alignment {
  int likeness = 0;  ///< Grows with the constant text that they have in common, and falls with each departure.
  std::vector<AlignedPiece> pieces;  ///< From the start of the message to its end.

  /// True when the format describes the message, if its fields may end anywhere.
  bool fits() const;
  /// True when any of the constants stands in the message, or a part of it.
  bool hasConstantText(const std::vector<Part>& parts) const;
};

/// Lays `message`, without white space at its ends, along `parts` so that the likeness is as large as it can be. Fields
/// take what they like, which is why this says nothing about whether the format binds: that is for the matcher. Global
/// alignment with affine gaps (Gotoh, "An improved algorithm for matching biological sequences", 1982), with fields as
/// gaps that cost nothing. Time and memory are the product of the two lengths; nothing when that is above 500,000.
std::optional<Alignment> align(const std::vector<Part>& parts, std::string_view message);

/// `message` with every departure undone: what is missing is put in, what is extra is left out.
std::string repaired(const Alignment& alignment, std::string_view message);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_EXPLAIN_ALIGNMENT_H_
