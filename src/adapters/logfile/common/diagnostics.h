#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_DIAGNOSTICS_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_DIAGNOSTICS_H_

#include <cstdarg>

/// How every module tells the operator what is wrong. Whoever reports names its level, its module, a site within the
/// module and two codes; ZORAD_Error() prints none of these, but another reporter may be put into the hooks below.
///
/// Writes the formatted message and a newline to standard error, if standard output or standard error is a terminal
/// or `reporting_always` is set. Otherwise nothing is printed: a run from a script speaks through its exit status.
/// Always returns 0.
///
/// Threads: the reporters may be called by any; the hooks and `reporting_always` are set before there are several.
[[gnu::format(printf, 6, 7)]] int ZORAD_Error(int level, const char* srcfile, int srcline, int code1, int code2,
                                              const char* fmt, ...);
[[gnu::format(printf, 6, 0)]] int ZORAD_Error_va(int level, const char* srcfile, int srcline, int code1, int code2,
                                                 const char* fmt, va_list args);

using Reporter [[gnu::format(printf, 6, 7)]] = int(int level, const char* srcfile, int srcline, int code1, int code2,
                                                   const char* fmt, ...);
using ParseReporter
    [[gnu::format(printf, 5, 6)]] = int(int flags, int level, const char* srcfile, int srcline, const char* fmt, ...);

/// Where reports go. LogDriver installs parse_error() and parse_warning() for what is found in a format file, and
/// ZORAD_Error() for everything else; the scanner, the parser and the model call them. Null before the first driver.
[[gnu::format(printf, 5, 6)]] extern ParseReporter* cefcn;  ///< Errors in a format file.
[[gnu::format(printf, 5, 6)]] extern ParseReporter* cwfcn;  ///< Warnings about a format file.
[[gnu::format(printf, 6, 7)]] extern Reporter* pefcn;       ///< Errors elsewhere.
[[gnu::format(printf, 6, 7)]] extern Reporter* ptfcn;       ///< Traces elsewhere.

/// Set by a program that wants its reports on standard error even when nobody watches a terminal, with control
/// characters made visible; read by ZORAD_Error(). Off unless set.
extern bool reporting_always;

namespace quillon {

/// Flags of a ParseReporter.
inline constexpr int kWithPosition = 1;  ///< The line number follows the message.
inline constexpr int kFailsRead = 2;     ///< The format file counts as unreadable from now on.

/// Levels that reports carry.
inline constexpr int kReaderLevel = 2;
inline constexpr int kModelLevel = 6;
inline constexpr int kDriverLevel = 7;

/// The first of the two codes that reports carry.
inline constexpr int kErrorCode = 1;
inline constexpr int kModelCode = 3;
inline constexpr int kWarningCode = 5;

/// Makes exhausted memory a report and exit status 1 instead of an exception. For programs, before anything else.
void exitWhenMemoryIsExhausted();

/// Reports `message` and ends the process with status 1: the way out when memory for a conversion cannot be had.
[[noreturn]] void exitWithoutMemory(const char* message);

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_DIAGNOSTICS_H_
