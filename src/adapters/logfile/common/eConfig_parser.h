#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_ECONFIG_PARSER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_ECONFIG_PARSER_H_

#include <cstdio>

class FormatSpec;
class MsgMapEntry;

/// What the scanner, the parser and the reader need of each other, and nobody else.

extern std::FILE* eConfig_yyin;  ///< The file that the scanner reads. ReadFmt() sets it.
extern char* eConfig_yytext;     ///< The present token. The scanner sets it, eConfig_yyerror() quotes it.

/// The next token, 0 at the end of the file. Fails the process with status 1 when the file cannot be read on.
int eConfig_yylex();

/// 0 when the file is well formed, 1 after the first syntax error.
int eConfig_yyparse();

/// Makes the scanner start over with `file`, outside any block.
void eConfig_start(std::FILE* file);

namespace quillon {

/// The parser's actions. Each belongs to one production, in the order of a block's text; texts are valid for the call.

/// The format that a block follows; null, with a report, when there is none of that name so far.
FormatSpec* findParent(const char* name);
/// Begins a block. What follows, until the next call, goes to its format.
void beginFormat(const char* name);
void addComponent(const char* text);
/// Ends the format string: the block inherits the maps of `parent`, if any, before it reads its own.
void endFormatString(FormatSpec* parent);
MsgMapEntry* makeSlot(const char* name, long kind, const char* value);
/// A slot with a bare word: a variable when it is "$" and digits, or none; a constant otherwise.
MsgMapEntry* makeWordSlot(const char* name, const char* value);
void beginPrint(const char* name);
/// Takes the format text, then each argument.
void addPrintPart(const char* text);
MsgMapEntry* endPrint();
void addSlot(MsgMapEntry* entry);

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_ECONFIG_PARSER_H_
