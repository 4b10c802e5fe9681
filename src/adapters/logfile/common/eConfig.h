#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_ECONFIG_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_ECONFIG_H_

class LogDriver;

/// Reading format files the established way: the state below belongs to the one read that can go on at a time, and a
/// failed one fails all that follow. A program that reads twice, or wants reports as values, uses FormatReader.h.
///
/// Threads: one in the process.

extern const char* parsing;  ///< Path of the file. ReadFmt() sets it, reports quote it; null before the first read.
extern int linenum;        ///< Current line of the file. ReadFmt() sets it to 1, the scanner counts, reports quote it.
extern int offset;         ///< Line within the block, 0 outside one. The scanner counts, the parser enters and leaves.
extern LogDriver* driver;  ///< Receives the formats. ReadFmt() sets it, the parser's actions use it.

/// Set by a program that must come to an end: a block comment that is never closed is then an error. Otherwise the
/// scanner waits for its end for ever. Read by the scanner.
extern bool comments_must_close;

/// Reads the format file `path` into `driver`. Returns 0 on success, and 1 when the file cannot be opened, has a syntax
/// error, or if any error was reported in this process, now or in an earlier read.
[[nodiscard]] int ReadFmt(const char* path, LogDriver* driver);

/// Report about the file that is being read, with flags from diagnostics.h. A second line tells the file and, with
/// kWithPosition, the line; that of a warning does not name the file. Both return 0.
[[gnu::format(printf, 5, 6)]] int parse_error(int flags, int level, const char* srcfile, int srcline, const char* fmt,
                                              ...);
[[gnu::format(printf, 5, 6)]] int parse_warning(int flags, int level, const char* srcfile, int srcline, const char* fmt,
                                                ...);

/// Reports an error at the present token, which fails the read. Returns 0.
int eConfig_yyerror(const char* msg);

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_ECONFIG_H_
