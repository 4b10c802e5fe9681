#include "authoring/codes.h"

#include <algorithm>
#include <cstdlib>

namespace quillon {
namespace {

constexpr CodeEntry kCodes[] = {
    {FindingCode::kCannotRead, Severity::kError, "cannot-read", "the file cannot be read",
     "The file does not exist, may not be read, or is a directory.", "", ""},
    {FindingCode::kMalformedSample, Severity::kWarning, "malformed-sample", "a sample cannot be understood",
     "A comment that begins with //@ is part of a sample. It begins with \"sample:\", \"not:\" or \"unmatched:\" and "
     "then "
     "has a line, or it is \"SLOT = VALUE\" below a sample. A line or value that begins with a quote stands in quotes "
     "as a "
     "whole, with \\\", \\\\, \\n, \\t and \\xHH in it.",
     "//@ sample:user marta logged in\n//@   who=marta\nFORMAT Login\nuser %s logged in\nwho $1\nEND\n",
     "//@ sample: user marta logged in\n//@   who = marta\nFORMAT Login\nuser %s logged in\nwho $1\nEND\n"},
    {FindingCode::kMisplacedSample, Severity::kWarning, "misplaced-sample", "a sample belongs to no block",
     "A sample stands before the FORMAT line of the block that it is of, or names that block, and the values that it "
     "expects follow it.",
     "FORMAT Login\nuser %s logged in\nwho $1\n//@ sample: user marta logged in\nEND\n",
     "//@ sample: user marta logged in\nFORMAT Login\nuser %s logged in\nwho $1\nEND\n"},
    {FindingCode::kLooksLikeSample, Severity::kWarning, "looks-like-sample", "a comment looks like a sample",
     "Only a line comment that begins with //@ is a sample. All other comments are prose, whatever they say, and "
     "nothing "
     "checks it.",
     "// sample: user marta logged in\nFORMAT Login\nuser %s logged in\nwho $1\nEND\n",
     "//@ sample: user marta logged in\nFORMAT Login\nuser %s logged in\nwho $1\nEND\n"},
    {FindingCode::kUnknownSampleBlock, Severity::kWarning, "unknown-sample-block",
     "a sample names a block that is not there",
     "A sample that names its block can stand anywhere, also in a file of samples, but the block must be there.",
     "FORMAT Login\nuser %s logged in\nwho $1\nEND\n//@ sample Logni: user marta logged in\n",
     "FORMAT Login\nuser %s logged in\nwho $1\nEND\n//@ sample Login: user marta logged in\n"},
    {FindingCode::kSampleNotBound, Severity::kWarning, "sample-not-bound", "a block does not bind its sample",
     "The line of a sample is bound by another block than the one that it is a sample of, or by none. An adapter tries "
     "the last block first.",
     "//@ sample: user marta logged in\nFORMAT Login\nuser %s logged on\nwho $1\nEND\n",
     "//@ sample: user marta logged in\nFORMAT Login\nuser %s logged in\nwho $1\nEND\n"},
    {FindingCode::kSampleWronglyBound, Severity::kWarning, "sample-wrongly-bound",
     "a block binds a line that it should not",
     "A line with \"not:\" is bound by the block that it stands before, or one with \"unmatched:\" is bound at all.",
     "//@ not: user marta logged in badly\nFORMAT Login\nuser %s logged in%s*\nwho $1\nrest $2\nEND\n",
     "//@ not: user marta logged in badly\nFORMAT Login\nuser %s logged in\nwho $1\nEND\n"},
    {FindingCode::kSampleValue, Severity::kWarning, "sample-value", "a sample gives a slot another value",
     "The right block binds the line of the sample, but a slot or a variable does not have the value that the sample "
     "says, or is not there.",
     "//@ sample: user marta logged in\n//@   who = marta\nFORMAT Login\n%s %s logged in\nwho $1\n-verb $2\nEND\n",
     "//@ sample: user marta logged in\n//@   who = marta\nFORMAT Login\n%s %s logged in\nwho $2\n-verb $1\nEND\n"},
    {FindingCode::kSampleOrder, Severity::kWarning, "sample-order",
     "only the order of the blocks decides what binds a sample",
     "Two blocks describe the line, and neither follows the other: which of them binds it depends on whether the last "
     "block is tried first, as adapters do, or the first. A sample \"not:\" with the same line before the one that "
     "shall "
     "not bind it says that this is meant.",
     "FORMAT Any\nuser %s %s*\nwho $1\nwhat $2\nEND\n//@ sample: user marta logged in\nFORMAT Login\n"
     "user %s logged in\nwho $1\nEND\n",
     "//@ not: user marta logged in\nFORMAT Any\nuser %s %s*\nwho $1\nwhat $2\nEND\n"
     "//@ sample: user marta logged in\nFORMAT Login\nuser %s logged in\nwho $1\nEND\n"},
};

}  // namespace

std::span<const CodeEntry> allCodes() { return kCodes; }

const CodeEntry& codeEntry(FindingCode code) {
  const auto* const found = std::ranges::lower_bound(kCodes, code, {}, &CodeEntry::code);
  if (found == std::end(kCodes) || found->code != code) std::abort();  // a code without its row
  return *found;
}

std::string codeText(FindingCode code) {
  const std::string digits = std::to_string(static_cast<int>(code));
  return "Q" + std::string(4 - digits.size(), '0') + digits;
}

std::optional<FindingCode> codeNamed(std::string_view text) {
  for (const CodeEntry& entry : kCodes) {
    if (text == entry.name || text == codeText(entry.code)) return entry.code;
  }
  return std::nullopt;
}

}  // namespace quillon
