#ifndef QUILLON_AUTHORING_EXPLAIN_EXPLANATION_TEXT_H_
#define QUILLON_AUTHORING_EXPLAIN_EXPLANATION_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "authoring/explain/Drawing.h"
#include "authoring/explain/Explanation.h"

/// Explanations as text, for people and for programs. For any thread.
namespace quillon {

struct ExplanationStyle {
  Drawing::Style drawing;
  std::size_t mostTried = 5;  ///< Blocks that were tried before the one that binds: those that came furthest.
};

/// Whole lines; bytes of the message are counted from 1 in them.
std::string explanationText(const Explanation& explanation, const ExplanationStyle& style);

/// Why one block does not bind `message`, with the two drawn one under the other.
std::string nearBlockText(const NearBlock& block, std::string_view message, const Drawing::Style& style);

/// One line with what matters most: `stopped at byte 35: expected "Accepted", found "Acceptd"`.
std::string stopText(const NearBlock& block);

/// An object (RFC 8259) in one line, without a newline. Places count from 0; what is not UTF-8 becomes U+FFFD.
std::string explanationJson(const Explanation& explanation);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_EXPLAIN_EXPLANATION_TEXT_H_
