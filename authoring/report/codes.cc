#include "authoring/report/codes.h"

#include <algorithm>
#include <cstdlib>

namespace quillon {
namespace {

constexpr CodeEntry kCodes[] = {
    {FindingCode::kCannotRead, Severity::kError, "cannot-read", "the file cannot be read",
     "The file does not exist, may not be read, or is a directory.", "", ""},
    {FindingCode::kUnclosedComment, Severity::kError, "unclosed-comment", "a block comment is never closed",
     "A comment goes from /* to the next */, over as many lines as there are in between. Without a */ all of the rest "
     "of the file is comment, and the compiler waits for its end for ever.",
     "/* Logins.\nFORMAT Login\nuser %s logged in\nuser $1\nEND\n",
     "/* Logins. */\nFORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kTextOutsideBlock, Severity::kError, "text-outside-block", "text stands outside any block",
     "Between blocks there may be blank lines and comments and nothing else. A line with one slash or a # is no "
     "comment, and the lines of a slot belong before END.",
     "# Logins.\nFORMAT Login\nuser %s logged in\nuser $1\nEND\n",
     "// Logins.\nFORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kCommentWithoutNewline, Severity::kError, "comment-without-newline",
     "the comment in the last line has no newline",
     "A comment behind // goes up to the end of its line, that end included. In a last line that has no newline it is "
     "no comment but a word that begins with //.",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\n// done",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\n// done\n"},
    {FindingCode::kByteOrderMark, Severity::kError, "byte-order-mark", "the file begins with a byte order mark",
     "Some editors begin a file with a mark that says how it is encoded. It cannot be seen, and is read as the "
     "beginning of the first word, which then is not FORMAT.",
     "", ""},
    {FindingCode::kKeywordCase, Severity::kError, "keyword-case", "a keyword is not in capital letters",
     "FORMAT, FOLLOWS, END, PRINTF, DEFAULT, LABEL and FILENAME are written in capital letters. In small ones they are "
     "ordinary words.",
     "FORMAT Login\nuser %s logged in\nuser $1\nend\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kMissingName, Severity::kError, "missing-name", "a block has no name",
     "Behind FORMAT stands the name of the class that messages of this form become.",
     "FORMAT\nuser %s logged in\nuser $1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kBadName, Severity::kError, "bad-name", "a name holds a character that no word has",
     "The names of blocks are words: runs of bytes other than white space, the double quote, %, parentheses and the "
     "comma.",
     "FORMAT Login(sshd)\nuser %s logged in\nuser $1\nEND\n", "FORMAT Login_sshd\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kTextBehindName, Severity::kError, "text-behind-name", "text stands behind the name of a block",
     "Behind the name of a block there can be FOLLOWS and the name of one earlier block, and a comment that is closed "
     "with */.",
     "FORMAT Failed Login\nuser %s failed\nuser $1\nEND\n", "FORMAT Failed_Login\nuser %s failed\nuser $1\nEND\n"},
    {FindingCode::kMissingParent, Severity::kError, "missing-parent", "FOLLOWS names no block",
     "Behind FOLLOWS stands the name of an earlier block, whose slots are inherited.",
     "FORMAT Login FOLLOWS\nuser %s logged in\nuser $1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kCommentBehindText, Severity::kError, "comment-behind-text",
     "a comment behind // takes the end of a line along",
     "A comment behind // goes up to the end of its line, that end included. The line that it stands behind then has "
     "no end, and the next line is read as part of it. Such a comment needs a line of its own; one between /* and */ "
     "does not.",
     "FORMAT Login\nuser %s logged in\nuser $1 // who\nEND\n",
     "FORMAT Login\nuser %s logged in\n// who\nuser $1\nEND\n"},
    {FindingCode::kMissingFormatString, Severity::kError, "missing-format-string", "a block has no format string",
     "The line behind the header is the format string, whatever it holds. It cannot be blank, and a comment there must "
     "stand behind //, since one between /* and */ leaves a blank line.",
     "FORMAT Login\n\nuser %s logged in\nuser $1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kMissingEnd, Severity::kError, "missing-end", "a block is not closed",
     "A block ends with a line that holds END. Without it, the lines of the next block are read as slots of this one.",
     "FORMAT Login\nuser %s logged in\nuser $1\n\nFORMAT Logout\nuser %s logged out\nuser $1\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\n\nFORMAT Logout\nuser %s logged out\nuser $1\nEND\n"},
    {FindingCode::kNoNewlineAtEnd, Severity::kError, "no-newline-at-end", "the last line has no newline",
     "The line of END must be ended by a newline, also when it is the last one of the file.",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kTextBehindEnd, Severity::kError, "text-behind-end", "text stands behind END",
     "END stands alone in its line. Before END a word belongs to a slot; behind it, to nothing.",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND Login\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kBlankLineInBlock, Severity::kError, "blank-line-in-block", "a blank line stands within a block",
     "From FORMAT to END each line is the header, the format string or a slot. A blank line is none of them; neither "
     "is a line with nothing but a comment between /* and */.",
     "FORMAT Login\nuser %s logged in\nuser $1\n\nseverity HARMLESS\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nseverity HARMLESS\nEND\n"},
    {FindingCode::kBadSlotName, Severity::kError, "bad-slot-name", "a slot line begins with something that is no name",
     "A slot line is the name of a slot and its value. The name is a word, without quotes, parentheses, commas and %. "
     "A line that begins with a field is a second format string, of which a block has one.",
     "FORMAT Login\nuser %s logged in\n\"user\" $1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kKeywordAsSlot, Severity::kError, "keyword-as-slot", "a slot is named like a keyword",
     "DEFAULT, LABEL, FILENAME, PRINTF and END are keywords in the lines of slots, and no slot can have their names.",
     "FORMAT Login\nuser %s logged in\nLABEL $1\nEND\n", "FORMAT Login\nuser %s logged in\nlabel $1\nEND\n"},
    {FindingCode::kMissingValue, Severity::kError, "missing-value", "a slot has no value",
     "A slot line is the name of a slot and its value, with white space between the two. An empty text is written "
     "\"\".",
     "FORMAT Login\nuser %s logged in\nuser=$1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kKeywordAsValue, Severity::kError, "keyword-as-value", "a keyword stands for a constant",
     "END and PRINTF are keywords in the lines of slots. A constant of that text must be quoted.",
     "FORMAT Login\nuser %s logged in\nuser $1\nphase END\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nphase \"END\"\nEND\n"},
    {FindingCode::kHalfQuoted, Severity::kError, "half-quoted", "a quote has no other one",
     "A text between quotes has one at either end. Without the second one, the text goes on to the next quote of the "
     "file, however far that is; a quote within a text is written \\\".",
     "FORMAT Login\nuser %s logged in\nuser $1\nseverity \"HARMLESS\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nseverity \"HARMLESS\"\nEND\n"},
    {FindingCode::kSeveralWords, Severity::kError, "several-words", "a value of several words is not quoted",
     "A value is one variable, one word, one quoted text, one keyword or one PRINTF. Several words are one text when "
     "they stand between quotes.",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg a user logged in\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg \"a user logged in\"\nEND\n"},
    {FindingCode::kSpecialCharacter, Severity::kError, "special-character",
     "a value with a special character is not quoted",
     "Parentheses, commas and % are no part of a word. A constant that holds one must be quoted.",
     "FORMAT Login\nuser %s logged in\nuser $1\nload 100%\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nload \"100%\"\nEND\n"},
    {FindingCode::kPrintfWithoutText, Severity::kError, "printf-without-text", "PRINTF has no text",
     "PRINTF is followed by a parenthesis and a quoted text, in which each %s stands for the value of a slot.",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF \"login of %s\", user\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"login of %s\", user)\nEND\n"},
    {FindingCode::kPrintfArgument, Severity::kError, "printf-argument",
     "an argument of PRINTF is not the name of a slot",
     "Behind its text PRINTF takes the names of slots, each after a comma. What is not the value of a slot stands in "
     "the text, or is made a slot of its own.",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"%s of %s\" user, user)\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"%s of %s\", user, user)\nEND\n"},
    {FindingCode::kPrintfNotClosed, Severity::kError, "printf-not-closed", "a PRINTF is not closed",
     "A PRINTF ends with a parenthesis, in the line that it began in.",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"login of %s\", user\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"login of %s\", user)\nEND\n"},
    {FindingCode::kTextBehindValue, Severity::kError, "text-behind-value", "text stands behind a value",
     "A slot has one value, and nothing but white space or a comment between /* and */ follows it. PRINTF joins "
     "several values.",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg \"login\" \"user\"\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg \"login user\"\nEND\n"},
    {FindingCode::kUndefinedParent, Severity::kError, "undefined-parent", "FOLLOWS names a block that is not there",
     "A block inherits from an earlier block of the same file. Capital and small letters are different.",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\nFORMAT Root FOLLOWS Logins\nuser %s logged in as root\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\nFORMAT Root FOLLOWS Login\nuser %s logged in as root\nEND\n"},
    {FindingCode::kParentLater, Severity::kError, "parent-later", "FOLLOWS names a later block",
     "A block inherits what is known when its header is read, so the parent must end before it. An adapter tries later "
     "blocks first: a general parent that stands first is also tried last.",
     "FORMAT Root FOLLOWS Login\nuser %s logged in as root\nEND\nFORMAT Login\nuser %s logged in\nuser $1\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\nFORMAT Root FOLLOWS Login\nuser %s logged in as root\nEND\n"},
    {FindingCode::kParentItself, Severity::kError, "parent-itself", "a block follows itself",
     "A block cannot inherit from itself: it is known by its name only when its header has been read.",
     "FORMAT Login FOLLOWS Login\nuser %s logged in\nuser $1\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kTokenTooLong, Severity::kError, "token-too-long", "a word or a text is too long",
     "A word, the name of a block or slot, and a quoted text with its quotes have no more than 255 bytes. Only format "
     "strings may be longer, as long as each of their words is not.",
     "", ""},
    {FindingCode::kTooManyVariables, Severity::kError, "too-many-variables",
     "a format string has more than 64 variables",
     "All fields but %n are variables, and values are kept for the first 64.", "", ""},
    {FindingCode::kVariableOutOfRange, Severity::kError, "variable-out-of-range", "there is no variable of this number",
     "The variables of a block are the fields of its own format string, counted from $1. The fields of the block that "
     "it follows do not count, and neither does %n.",
     "FORMAT Login\nuser %s logged in\nuser $2\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kPrintfCount, Severity::kError, "printf-count", "PRINTF has another number of slots than of %s",
     "Each %s in the text of a PRINTF stands for one of the slots behind it, in their order. The two letters count "
     "wherever they stand, also in %%s.",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"login of %s from %s\", user)\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"login of %s\", user)\nEND\n"},
    {FindingCode::kPrintfUnknownSlot, Severity::kError, "printf-unknown-slot",
     "PRINTF names a slot that the block does not have",
     "PRINTF takes the values of slots of its block, inherited ones included, and not variables. A variable that is "
     "for PRINTF alone is mapped to a slot with a - before its name.",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"login of %s\", $1)\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"login of %s\", user)\nEND\n"},
    {FindingCode::kPrintfItself, Severity::kError, "printf-itself", "a PRINTF names its own slot",
     "The value of the slot would be needed to make it.",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"login: %s\", msg)\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"login: %s\", user)\nEND\n"},
    {FindingCode::kPrintfCircle, Severity::kError, "printf-circle", "PRINTFs refer to each other",
     "The value of each of these slots would be needed to make it.",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"login: %s\", text)\ntext PRINTF(\"%s\", msg)\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"login: %s\", text)\ntext \"a user\"\nEND\n"},
    {FindingCode::kRefused, Severity::kError, "refused", "the compiler refuses the file",
     "The compiler does not take this, for a reason that has no code of its own.", "", ""},
    {FindingCode::kCommentInFormatString, Severity::kWarning, "comment-in-format-string",
     "a comment makes the next line part of the format string",
     "A comment behind // takes the end of its line along, so the format string goes on in the next line, which was "
     "meant for a slot.",
     "FORMAT Login\nuser %s logged in // sshd\nuser $1\nEND\n",
     "FORMAT Login\n// sshd\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kUnknownField, Severity::kWarning, "unknown-field", "a per cent sign begins no field",
     "The fields are %s, %s*, %s+, %t and %n, and %s with a width. Any other letter behind a per cent sign is text, as "
     "the sign is: the message must hold both.",
     "FORMAT Exit\nstatus %d of %s\nprogram $1\nEND\n", "FORMAT Exit\nstatus %s of %s\nstatus $1\nprogram $2\nEND\n"},
    {FindingCode::kDoublePercent, Severity::kWarning, "double-percent", "a per cent sign is written twice",
     "In a format string a per cent sign that begins no field is text as it stands. Two of them want two in the "
     "message.",
     "FORMAT Load\nload of %s is 90 %%\nhost $1\nEND\n", "FORMAT Load\nload of %s is 90 %\nhost $1\nEND\n"},
    {FindingCode::kWidthIsText, Severity::kWarning, "width-is-text", "a width stands before a field that takes none",
     "Only %s takes a width. In %5t and %5n the per cent sign is text, and so are digits and letter.",
     "FORMAT Login\n%15t user %s logged in\nuser $1\nEND\n",
     "FORMAT Login\n%t user %s logged in\n-date $1\nuser $2\nEND\n"},
    {FindingCode::kZeroWidth, Severity::kWarning, "zero-width", "a width is 0",
     "A width says how many bytes of a word are kept. 0 says the same as none at all: all of them.",
     "FORMAT Login\nuser %0s logged in\nuser $1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kTab, Severity::kWarning, "tab", "a tab stands in a format string",
     "Blanks and tabs in a format string stand for any white space, however much. A tab that looks as if the message "
     "had to have one there says nothing of the kind.",
     "FORMAT Login\nuser %s\tlogged in\nuser $1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kFieldsGlued, Severity::kWarning, "fields-glued", "nothing stands between two fields",
     "A field ends at white space or at the text behind it. Where another field follows at once, the first one takes "
     "the whole word and leaves nothing.",
     "FORMAT Login\nuser %s%s logged in\nuser $1\nrealm $2\nEND\n",
     "FORMAT Login\nuser %s@%s logged in\nuser $1\nrealm $2\nEND\n"},
    {FindingCode::kBlankAtEnd, Severity::kWarning, "blank-at-end", "a format string ends in white space",
     "White space in a format string wants some in the message, also at its end. Without it, a message may end in "
     "white space or not.",
     "FORMAT Login\nuser %s logged in \nuser $1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kBlankAtStart, Severity::kWarning, "blank-at-start", "a format string begins with white space",
     "White space at the beginning of a message is skipped before anything is compared, so there is none left that "
     "this could stand for.",
     "FORMAT Login\n  user %s logged in\nuser $1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kNoVariables, Severity::kWarning, "no-variables", "a format string has no variables",
     "In a block without variables nothing is tried twice and no word must be there: what counts is that the message "
     "is used up. So \"link is down\" takes \"link\", \"down\" and an empty message as well.",
     "FORMAT Down\nlink is down\nseverity WARNING\nEND\n", "FORMAT Down\n%s is down\nlink $1\nseverity WARNING\nEND\n"},
    {FindingCode::kQuotedFormatString, Severity::kWarning, "quoted-format-string", "a format string is quoted",
     "A format string is the whole line as it stands. Quotes in it are text that the message must hold.",
     "FORMAT Login\n\"user %s logged in\"\nuser $1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kCarriageReturn, Severity::kWarning, "carriage-return", "lines end in a carriage return",
     "Files that were saved with the line ends of another system have a carriage return before each newline. It is "
     "white space, so each format string ends in white space, and messages that do not are not taken.",
     "FORMAT Login\r\nuser %s logged in\r\nuser $1\r\nEND\r\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kNotInCodeset, Severity::kWarning, "not-in-codeset", "text is not in the codeset",
     "The texts of a format file are converted to UTF-8 from the codeset of the system. What that does not have "
     "becomes a question mark, and bytes that are not UTF-8 where that is the codeset fit no well-formed message.",
     "FORMAT Login\nBenutzer %s \xFC"
     "bernommen\nuser $1\nEND\n",
     "FORMAT Login\nBenutzer %s \xC3\xBC"
     "bernommen\nuser $1\nEND\n"},
    {FindingCode::kNulByte, Severity::kWarning, "nul-byte", "the file holds a NUL byte",
     "A NUL byte is part of a word or a text, but ends what is kept of it; in a comment it ends the comment. It cannot "
     "be seen, and comes from files that are not plain text.",
     "", ""},
    {FindingCode::kCommentGlued, Severity::kWarning, "comment-glued", "a comment begins within a word",
     "A comment begins only where a word could begin. Behind other text /* is part of that text, and so is what "
     "follows.",
     "FORMAT Login\nuser %s logged in/* sshd */\nuser $1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kVariableNotMapped, Severity::kWarning, "variable-not-mapped", "a variable has no slot",
     "A field whose value no slot holds is lost. A slot with a - before its name keeps it for PRINTF without showing "
     "it in the event.",
     "FORMAT Login\nuser %s logged in from %s\nuser $1\nEND\n",
     "FORMAT Login\nuser %s logged in from %s\nuser $1\nhost $2\nEND\n"},
    {FindingCode::kVariableMappedTwice, Severity::kWarning, "variable-mapped-twice", "a variable has several slots",
     "Two slots with the same variable are mostly a slip of a number, often together with a variable that no slot "
     "holds.",
     "FORMAT Login\nuser %s logged in\nuser $1\nowner $1\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nowner PRINTF(\"%s\", user)\nEND\n"},
    {FindingCode::kSlotTwice, Severity::kWarning, "slot-twice", "a slot is given twice",
     "A later line for the same slot takes the place of the earlier one, which is lost without a word.",
     "FORMAT Login\nuser %s from %s\nuser $1\nuser $2\nEND\n",
     "FORMAT Login\nuser %s from %s\nuser $1\nhost $2\nEND\n"},
    {FindingCode::kInheritedDropped, Severity::kWarning, "inherited-dropped", "a slot is not inherited",
     "An inherited slot keeps its variable's number, which counts the fields of the block that inherits. Where that "
     "has fewer, the slot is left out.",
     "FORMAT Login\nuser %s from %s\nuser $1\nhost $2\nEND\nFORMAT Local FOLLOWS Login\nuser %s here\nEND\n",
     "FORMAT Login\nuser %s from %s\nuser $1\nhost $2\nEND\nFORMAT Local FOLLOWS Login\nuser %s here\nhost "
     "LABEL\nEND\n"},
    {FindingCode::kNotAVariable, Severity::kWarning, "not-a-variable", "a constant looks like a variable",
     "A variable is $ and its number, and nothing else. A name or other text behind $ makes a constant of it.",
     "FORMAT Login\nuser %s logged in\nuser $name\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kQuotedVariable, Severity::kWarning, "quoted-variable", "a variable is quoted",
     "What stands between quotes is a text, also \"$1\".", "FORMAT Login\nuser %s logged in\nuser \"$1\"\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kKeywordAsConstant, Severity::kWarning, "keyword-as-constant", "a constant looks like a keyword",
     "Keywords are written in capital letters. In small ones they are constants like any other word.",
     "FORMAT Login\nuser %s logged in\nuser $1\nhost label\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nhost LABEL\nEND\n"},
    {FindingCode::kSlotNamedKeyword, Severity::kWarning, "slot-named-keyword", "a slot is named FORMAT or FOLLOWS",
     "In the lines of slots FORMAT and FOLLOWS are ordinary words. Where END is missing, the header of the next block "
     "is read as a slot of this one, and its format string as another.",
     "FORMAT Login\nuser %s logged in\nuser $1\nFORMAT Logout\nlogged out\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\nFORMAT Logout\n%s logged out\nuser $1\nEND\n"},
    {FindingCode::kPrintfOfPrintf, Severity::kWarning, "printf-of-printf", "a PRINTF names a slot that is a PRINTF",
     "In class definitions a PRINTF can hold another one. In the text of an event its %s stays as it is.",
     "FORMAT Login\nuser %s logged in\nuser $1\ntext PRINTF(\"login of %s\", user)\nmsg PRINTF(\"sshd: %s\", "
     "text)\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\ntext PRINTF(\"login of %s\", user)\nmsg PRINTF(\"sshd: login of %s\", "
     "user)\nEND\n"},
    {FindingCode::kOtherConversion, Severity::kWarning, "other-conversion", "a PRINTF holds a conversion other than %s",
     "PRINTF replaces %s and nothing else. Any other letter behind a per cent sign stays in the text.",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"uid %d is %s\", user)\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg PRINTF(\"user is %s\", user)\nEND\n"},
    {FindingCode::kUnusedSlot, Severity::kWarning, "unused-slot", "a slot has no effect",
     "A - before its name keeps a slot out of the event. A constant or a PRINTF of that kind has an effect only if a "
     "PRINTF names the slot.",
     "FORMAT Login\nuser %s logged in\nuser $1\n-source SSHD\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nsource SSHD\nEND\n"},
    {FindingCode::kTextOverLines, Severity::kWarning, "text-over-lines", "a quoted text goes over the end of its line",
     "Between quotes a line break is text. Mostly a quote is missing, and the lines up to the next quote of the file "
     "have become part of the text.",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg \"a user\nlogged in\"\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nmsg \"a user logged in\"\nEND\n"},
    {FindingCode::kTrailingBackslash, Severity::kWarning, "trailing-backslash", "a constant ends in a backslash",
     "A constant stands between quotes in the class definition, where a backslash before a quote makes it part of the "
     "text. So the text does not end where it should.",
     "FORMAT Login\nuser %s logged in\nuser $1\nhome C:\\\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nhome \"C:\\\\\"\nEND\n"},
    {FindingCode::kSlotPunctuation, Severity::kWarning, "slot-punctuation",
     "the name of a slot ends in a colon or an equals sign",
     "The name of a slot ends at white space. Punctuation before that is part of the name.",
     "FORMAT Login\nuser %s logged in\nuser: $1\nEND\n", "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kEmptySlotName, Severity::kWarning, "empty-slot-name", "a slot has an empty name",
     "A - before the name of a slot keeps it out of the event. Alone it is the whole name, and what remains of that is "
     "nothing.",
     "FORMAT Login\nuser %s logged in\n- $1\nEND\n", "FORMAT Login\nuser %s logged in\n-user $1\nEND\n"},
    {FindingCode::kSameName, Severity::kWarning, "same-name", "two blocks have one name",
     "Both blocks make events of the same class, with the slots of the block that was taken. FOLLOWS finds the first "
     "of them alone.",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\nFORMAT Login\n%s is here\nuser $1\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\nFORMAT Here\n%s is here\nuser $1\nEND\n"},
    {FindingCode::kAmbiguousParent, Severity::kWarning, "ambiguous-parent", "FOLLOWS names one of several blocks",
     "Of several blocks with one name, FOLLOWS takes the first, also when another one is nearer.",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\nFORMAT Login\n%s is here\nwho $1\nEND\nFORMAT Root FOLLOWS "
     "Login\nroot %s\nEND\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\nFORMAT Here\n%s is here\nwho $1\nEND\nFORMAT Root FOLLOWS "
     "Login\nroot %s\nEND\n"},
    {FindingCode::kBlankLineSaves, Severity::kWarning, "blank-line-saves",
     "a line ends only because a blank one follows",
     "A comment behind // takes the end of its line along. Here a blank line follows, whose end stands in; whoever "
     "removes it breaks the block.",
     "FORMAT Login\nuser %s logged in\nuser $1 // who\n\nEND\n",
     "FORMAT Login\nuser %s logged in\n// who\nuser $1\nEND\n"},
    {FindingCode::kCommentInComment, Severity::kWarning, "comment-in-comment", "a comment begins within a comment",
     "Comments do not nest. Where a */ is missing, the comment goes on up to that of the next one, and the blocks in "
     "between are part of it.",
     "/* Logins.\n/* sshd. */\nFORMAT Login\nuser %s logged in\nuser $1\nEND\n",
     "/* Logins. */\n/* sshd. */\nFORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kNoBlocks, Severity::kWarning, "no-blocks", "the file has no blocks",
     "A file without blocks is compiled to nothing.", "// FORMAT Login\n// user %s logged in\n// END\n",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kNeverBinds, Severity::kWarning, "never-binds", "a block never binds",
     "An adapter tries the last block first, and the first one that describes a line binds it. Everything that this "
     "block describes is described by blocks that are tried before it as well; this is proven. A line that shows it is "
     "bound by both, each tried alone. With --file-order the blocks are tried in the order of the file.",
     "FORMAT Login\nuser %s logged in\nuser $1\nEND\n\nFORMAT Any\nuser %s*\ntext $1\nEND\n",
     "FORMAT Any\nuser %s*\ntext $1\nEND\n\nFORMAT Login\nuser %s logged in\nuser $1\nEND\n"},
    {FindingCode::kLosesLines, Severity::kWarning, "loses-lines", "a block loses its lines to a more general one",
     "A block that is tried before this one takes its lines, whatever the values are. That was tried with several "
     "lines and is not proven for all, so a line of an unusual form may still come through.",
     "FORMAT Link\nlink %s: up\nlink $1\nEND\n\nFORMAT Up\n%s %s: up\nwhat $1\nname $2\nEND\n",
     "FORMAT Up\n%s %s: up\nwhat $1\nname $2\nEND\n\nFORMAT Link\nlink %s: up\nlink $1\nEND\n"},
    {FindingCode::kOverlap, Severity::kWarning, "overlap", "a block loses some of its lines to another one",
     "Two blocks describe the line that is shown. Each of them also describes lines that the other one does not, and "
     "the one that says less is tried first. Which of the two shall have such a line only their author knows.",
     "FORMAT Pages\nnode %s pages: %s\nnode $1\npages $2\nEND\n\nFORMAT Restart\n%s+: restart\nwhat $1\nEND\n",
     "FORMAT Restart\n%s+: restart\nwhat $1\nEND\n\nFORMAT Pages\nnode %s pages: %s\nnode $1\npages $2\nEND\n"},
    {FindingCode::kBindsNothing, Severity::kWarning, "binds-nothing", "a block binds nothing",
     "No message gets past one component of the format string; this is proven. Often the field before it has taken "
     "everything: a %s takes all of its word unless a constant follows at once, and a %s* without a later constant "
     "takes all that is left.",
     "FORMAT Login\nlogin %s* %s\nuser $1\nhost $2\nEND\n", "FORMAT Login\nlogin %s %s*\nuser $1\nhost $2\nEND\n"},
    {FindingCode::kBindsOddly, Severity::kWarning, "binds-oddly", "a block does not bind lines like its format string",
     "Lines that are made from the format string, with a word for each field, do not bind; only others do, such as the "
     "one that is shown. A %s* ends at the first place where the next constant stands, whatever stands between the two "
     "in the format string.",
     "FORMAT State\nlink %s* %s: up\nname $1\nport $2\nEND\n", "FORMAT State\nlink %s %s: up\nname $1\nport $2\nEND\n"},
    {FindingCode::kValueHoldsEnd, Severity::kWarning, "value-holds-end", "a value may hold the text that ends it",
     "A %s* or %s+ ends at the first place where the next constant stands. When what is behind it does not match, it "
     "is "
     "tried again with the next such place, but never when it is the first variable and a later one was reached, and "
     "not after 100 failures. A line whose value holds the constant that often does not bind.",
     "FORMAT Error\nerror: %s: %s* in %s\npart $1\ntext $2\nfile $3\nEND\n",
     "FORMAT Error\nerror: %s: %s*\npart $1\ntext $2\nEND\n"},
    {FindingCode::kCostly, Severity::kWarning, "costly", "a block costs far more than the others on some lines",
     "A line with many occurrences of the text that ends a field makes the matcher try the block again and again, at "
     "most 100 times, and each time it reads on from the field. Who can choose what is logged can write such lines. "
     "The count is that of the matcher, not a time; nine of ten blocks of the file have at most a tenth of it on their "
     "worst lines.",
     "", ""},
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
     "//@ not: user marta logged in badly\nFORMAT Login\nuser %s logged in %s*\nwho $1\nrest $2\nEND\n",
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
