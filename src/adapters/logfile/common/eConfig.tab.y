/* The grammar of format files. Every action is one call to the reading, which builds the model. */

%define api.prefix {eConfig_yy}
%define api.pure full
%define parse.error simple
%param {quillon::Reading& reading}
%expect 0

%code requires {
namespace quillon {
class Reading;
}
class FormatSpec;
class MsgMapEntry;
}

%union {
  const char* text; /* Kept by the reading: good until three more texts have been read. */
  FormatSpec* format;
  MsgMapEntry* entry;
}

%code provides {
/* What the scanner makes for a reading, and what the parser takes from it. */
int eConfig_yylex(ECONFIG_YYSTYPE* value, void* scanner);

extern ECONFIG_YYSTYPE eConfig_yylval; /* Of the token that eConfig_yylex() without a reading gave last. */
}

%code {
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/Reading.h"
#include "src/adapters/logfile/common/eConfig_parser.h"

/* Both stacks are arrays of this many entries. The grammar nests no deeper than a dozen, whatever the file. */
#define YYINITDEPTH 500
#define YYMAXDEPTH 500
#define yyoverflow(...)                                                 \
  do {                                                                  \
    reading.error(quillon::kNestedTooDeepSite, "yacc stack overflow");  \
    YYABORT;                                                            \
  } while (0)

static int eConfig_yylex(ECONFIG_YYSTYPE* value, quillon::Reading& reading) {
  const int kind = eConfig_yylex(value, reading.scanner());
  if (reading.keepsPlaces()) reading.keepToken(kind);
  return kind;
}

using Token = quillon::FormatPlaces::Token;
static_assert(int{Token::kWord} == WORD && int{Token::kQuoted} == QSTRING && int{Token::kNewline} == NEWLINE &&
              int{Token::kFormat} == FORMAT && int{Token::kEnd} == END && int{Token::kFilename} == FILENAME);

static void eConfig_yyerror(quillon::Reading& reading, const char* message) {
  reading.error(quillon::kSyntaxErrorSite, message);
}
}

%token <text> WORD 257
%token <text> FIELD 258
%token <text> BLANK 259
%token <text> QSTRING 260
%token <text> ATOM 261
%token NEWLINE 262
%token FORMAT 263
%token END 264
%token FOLLOWS 265
%token PRINTF 266
%token DEFAULT 267
%token LABEL 268
%token FILENAME 269

%type <format> follows
%type <entry> slot

%%

file: blocks
    ;

blocks: %empty
      | blocks block
      ;

/* The scanner reads what follows by the line within the block. So each line is announced before its first token is
   asked for, which the parser does because it reduces without looking ahead where it can. */
block: FORMAT { reading.state().offset = 1; } WORD follows NEWLINE { reading.beginFormat($3); }
       fmtstring NEWLINE { reading.endFormatString($4); }
       slots END NEWLINE { reading.endFormat(); }
     ;

follows: %empty { $$ = nullptr; }
       | FOLLOWS WORD { $$ = reading.findParent($2); }
       ;

/* Each piece is taken at once: a symbol for "any piece" would cost a third of the parser's time. The scanner makes no
   ATOM: a piece that may not be divided further. The parser takes one from whoever calls it with a scanner that does. */
fmtstring: WORD { reading.addComponent($1); }
         | FIELD { reading.addComponent($1); }
         | BLANK { reading.addComponent($1); }
         | ATOM { reading.addComponent($1); }
         | fmtstring WORD { reading.addComponent($2); }
         | fmtstring FIELD { reading.addComponent($2); }
         | fmtstring BLANK { reading.addComponent($2); }
         | fmtstring ATOM { reading.addComponent($2); }
         ;

slots: %empty
     | slots slot { reading.addSlot($2); }
     ;

slot: WORD WORD NEWLINE { $$ = reading.makeWordSlot($1, $2); }
    | WORD QSTRING NEWLINE { $$ = reading.makeSlot($1, constMap, $2); }
    | WORD DEFAULT NEWLINE { $$ = reading.makeSlot($1, defaultMap, "DEFAULT"); }
    | WORD LABEL NEWLINE { $$ = reading.makeSlot($1, labelMap, "LABEL"); }
    | WORD FILENAME NEWLINE { $$ = reading.makeSlot($1, filenameMap, "FILENAME"); }
    | WORD { reading.beginPrint($1); } printf NEWLINE { $$ = reading.endPrint(); }
    ;

printf: PRINTF '(' QSTRING { reading.addPrintPart($3); } args ')'
      ;

args: %empty
    | args ',' WORD { reading.addPrintPart($3); }
    ;

%%

/* The established functions and globals, which read through the one reading that the process has of its own. */

ECONFIG_YYSTYPE eConfig_yylval;
int eConfig_yynerrs = 0;

int eConfig_yylex() {
  quillon::Reading& reading = quillon::establishedReading();
  const int code = eConfig_yylex(&eConfig_yylval, reading);
  eConfig_yytext = const_cast<char*>(reading.tokenText());
  return code;
}

int eConfig_yyparse() {
  const int result = eConfig_yyparse(quillon::establishedReading());
  eConfig_yynerrs = result;  // the first syntax error ends it
  return result;
}
