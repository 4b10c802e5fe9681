#ifndef QUILLON_TESTS_MATCH_SUPPORT_FORMAT_LIST_H_
#define QUILLON_TESTS_MATCH_SUPPORT_FORMAT_LIST_H_

#include <string>
#include <string_view>
#include <vector>

class LogDriver;

namespace quillon {

/// A format string in its tokens: "%s", "%12s+", "%t", "%n", " " for white space, or a constant.
using Tokens = std::vector<std::string>;

/// Formats in the order in which they are tried.
using FormatList = std::vector<Tokens>;

/// True for a token that is a field with a value: not for a constant, white space or "%n".
bool isVariable(const std::string& token);

/// The tokens as the model splits `text`.
Tokens tokensOf(const std::string& text);

/// The formats of `driver`, in the order of its list.
FormatList formatsOf(const LogDriver& driver);

/// The format string.
std::string joined(const Tokens& tokens);

/// As a format file whose blocks, from the first to the last, are these formats: each with a slot for each variable, a
/// constant and a PRINTF. To be tried in this order it must be read in file order.
std::string formatFile(const FormatList& formats);

/// `text` with everything but printable ASCII escaped as in a C string.
std::string printable(std::string_view text);

}  // namespace quillon

#endif  // QUILLON_TESTS_MATCH_SUPPORT_FORMAT_LIST_H_
