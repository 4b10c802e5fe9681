#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_ECONFIG_PARSER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_ECONFIG_PARSER_H_

#include <cstdio>

/// The scanner and the parser behind ReadFmt(), for those who drive them themselves. They work on the state in
/// eConfig.h.
///
/// Threads: one in the process.

extern std::FILE* eConfig_yyin;  ///< The file that the scanner reads; standard input when null. ReadFmt() sets it.
/// The present token, also while one is reported about. Set by the functions below, quoted by eConfig_yyerror().
extern char* eConfig_yytext;
extern int eConfig_yynerrs;  ///< Syntax errors of the last eConfig_yyparse(): the first one ends it.

/// The next token, 0 at the end of the file. Ends the process with status 1 when the file cannot be read on.
int eConfig_yylex();

/// 0 when the file is well formed, 1 after the first syntax error.
[[nodiscard]] int eConfig_yyparse();

/// Makes the scanner start over with `file`, outside any block.
void eConfig_start(std::FILE* file);

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_ECONFIG_PARSER_H_
