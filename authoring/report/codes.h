#ifndef QUILLON_AUTHORING_REPORT_CODES_H_
#define QUILLON_AUTHORING_REPORT_CODES_H_

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "src/adapters/logfile/common/Report.h"

namespace quillon {

/// What can be found in a format file. A code keeps its number for ever, and a number that is given up is not used
/// again. A new one needs its row in codes.cc and a case in tests/authoring/cases/.
enum class FindingCode {
  // 1 to 99: the file as a whole.
  kCannotRead = 1,

  // 101 to 199: what the compiler cannot read.
  kUnclosedComment = 101,
  kTextOutsideBlock,
  kCommentWithoutNewline,
  kByteOrderMark,
  kKeywordCase,
  kMissingName,
  kBadName,
  kTextBehindName,
  kMissingParent,
  kCommentBehindText,
  kMissingFormatString,
  kMissingEnd,
  kNoNewlineAtEnd,
  kTextBehindEnd,
  kBlankLineInBlock,
  kBadSlotName,
  kKeywordAsSlot,
  kMissingValue,
  kKeywordAsValue,
  kHalfQuoted,
  kSeveralWords,
  kSpecialCharacter,
  kPrintfWithoutText,
  kPrintfArgument,
  kPrintfNotClosed,
  kTextBehindValue,

  // 201 to 299: what it reads and refuses: names, numbers, PRINTF.
  kUndefinedParent = 201,
  kParentLater,
  kParentItself,
  kTokenTooLong,
  kTooManyVariables,
  kVariableOutOfRange,
  kPrintfCount,
  kPrintfUnknownSlot,
  kPrintfItself,
  kPrintfCircle,
  kRefused,

  // 301 to 399: format strings that say something else than they seem to.
  kCommentInFormatString = 301,
  kUnknownField,
  kDoublePercent,
  kWidthIsText,
  kZeroWidth,
  kTab,
  kFieldsGlued,
  kBlankAtEnd,
  kBlankAtStart,
  kNoVariables,
  kQuotedFormatString,
  kCarriageReturn,
  kNotInCodeset,
  kNulByte,
  kCommentGlued,

  // 401 to 499: slots that do.
  kVariableNotMapped = 401,
  kVariableMappedTwice,
  kSlotTwice,
  kInheritedDropped,
  kNotAVariable,
  kQuotedVariable,
  kKeywordAsConstant,
  kSlotNamedKeyword,
  kPrintfOfPrintf,
  kOtherConversion,
  kUnusedSlot,
  kTextOverLines,
  kTrailingBackslash,
  kSlotPunctuation,
  kEmptySlotName,

  // 501 to 599: blocks among other blocks.
  kSameName = 501,
  kAmbiguousParent,
  kBlankLineSaves,
  kCommentInComment,
  kNoBlocks,

  // 601 to 699: what the matcher would do.
  kNeverBinds = 601,
  kLosesLines,
  kOverlap,
  kBindsNothing,
  kBindsOddly,
  kValueHoldsEnd,
  kCostly,

  // 701 to 799: samples.
  kMalformedSample = 701,
  kMisplacedSample = 702,
  kLooksLikeSample = 703,
  kUnknownSampleBlock = 704,
  kSampleNotBound = 705,
  kSampleWronglyBound = 706,
  kSampleValue = 707,
  kSampleOrder = 708,
};

/// A row of the table in codes.cc, from which everything that is said about a code in general comes.
struct CodeEntry {
  FindingCode code;
  Severity severity;        ///< kError exactly when the file does not compile because of it.
  const char* name;         ///< "unclosed-comment", for texts that machines read.
  const char* title;        ///< In a few words.
  const char* explanation;  ///< A paragraph, without line breaks.
  const char* before;       ///< A file in which it is found,
  const char* after;        ///< and how that is written well. Empty where no example can be given.
};

/// All rows, by their numbers.
std::span<const CodeEntry> allCodes();

const CodeEntry& codeEntry(FindingCode code);

/// "Q0101".
std::string codeText(FindingCode code);

/// The code of this text or name; none when there is none.
std::optional<FindingCode> codeNamed(std::string_view text);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_REPORT_CODES_H_
