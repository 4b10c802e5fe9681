#ifndef QUILLON_AUTHORING_EXPLAIN_REASONS_H_
#define QUILLON_AUTHORING_EXPLAIN_REASONS_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "authoring/explain/Explanation.h"

/// Why a block does not bind a message, in words. For any thread.
namespace quillon {

/// What the part number `part` needs to stand where it is tried: `"Accepted"`, "white space", "a word". The number of
/// parts stands for the end of the message.
std::string expectedText(const std::vector<Part>& parts, std::size_t part);

/// `text` in double quotes, for people: control characters are made visible, a long one is cut.
std::string inQuotes(std::string_view text);

/// Fills in where to look, the rule and the reason of `block`, which does not bind `message` and has all else.
void giveReason(NearBlock& block, std::string_view message);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_EXPLAIN_REASONS_H_
