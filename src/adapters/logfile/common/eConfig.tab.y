/* The grammar of format files. Every action is one call; quillon::... builds the model. */

%define api.prefix {eConfig_yy}
%define parse.error simple
%expect 0

%code {
#include "src/adapters/logfile/common/eConfig.h"
#include "src/adapters/logfile/common/eConfig_parser.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"

/* Both stacks are arrays of this many entries. The grammar nests no deeper than a dozen, whatever the file. */
#define YYINITDEPTH 500
#define YYMAXDEPTH 500
#define yyoverflow(...) do { eConfig_yyerror("yacc stack overflow"); YYABORT; } while (0)
}

%code requires {
class FormatSpec;
class MsgMapEntry;
}
%union {
  const char* text; /* In the scanner's buffers: good until three more texts have been read. */
  FormatSpec* format;
  MsgMapEntry* entry;
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
block: FORMAT { offset = 1; } WORD follows NEWLINE { quillon::beginFormat($3); }
       fmtstring NEWLINE { quillon::endFormatString($4); }
       slots END NEWLINE { offset = 0; }
     ;

follows: %empty { $$ = nullptr; }
       | FOLLOWS WORD { $$ = quillon::findParent($2); }
       ;

fmtstring: component
         | fmtstring component
         ;

component: WORD { quillon::addComponent($1); }
         | FIELD { quillon::addComponent($1); }
         | BLANK { quillon::addComponent($1); }
         | ATOM { quillon::addComponent($1); }
         ;

slots: %empty
     | slots slot { quillon::addSlot($2); }
     ;

slot: WORD WORD NEWLINE { $$ = quillon::makeWordSlot($1, $2); }
    | WORD QSTRING NEWLINE { $$ = quillon::makeSlot($1, constMap, $2); }
    | WORD DEFAULT NEWLINE { $$ = quillon::makeSlot($1, defaultMap, "DEFAULT"); }
    | WORD LABEL NEWLINE { $$ = quillon::makeSlot($1, labelMap, "LABEL"); }
    | WORD FILENAME NEWLINE { $$ = quillon::makeSlot($1, filenameMap, "FILENAME"); }
    | WORD { quillon::beginPrint($1); } printf NEWLINE { $$ = quillon::endPrint(); }
    ;

printf: PRINTF '(' QSTRING { quillon::addPrintPart($3); } args ')'
      ;

args: %empty
    | args ',' WORD { quillon::addPrintPart($3); }
    ;
