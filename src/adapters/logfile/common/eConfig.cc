#include "src/adapters/logfile/common/eConfig.h"

#include <cstdarg>
#include <string>

#include "src/adapters/logfile/common/Reading.h"
#include "src/adapters/logfile/common/diagnostics.h"
#include "src/adapters/logfile/common/eConfig_parser.h"
#include "src/adapters/logfile/common/shared_text.h"

const char* parsing = nullptr;
int linenum = 0;
int offset = 0;
LogDriver* driver = nullptr;
bool comments_must_close = false;
std::FILE* eConfig_yyin = nullptr;
char* eConfig_yytext = nullptr;

namespace {

int status = 0;  ///< 1 since a report that fails reads; never 0 again.

/// How a report about a format file goes on. The texts take the line number and the file name.
struct Position {
  int code;
  const char* atLine;
  const char* inFile;
};

constexpr Position kErrorPosition = {quillon::kErrorCode, "parsing error at line %d of file: %s",
                                     "parsing error in file: %s"};
// The position of a warning names no file. Those who watch terminals know it that way.
constexpr Position kWarningPosition = {quillon::kWarningCode,
                                       "parsing warning at line %d of file: ", "parsing warning in file: %s"};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // the two formats above
int report(const Position& position, int flags, int level, const char* srcfile, int srcline, const char* fmt,
           va_list args) {
  if (flags & quillon::kFailsRead) status = 1;
  ZORAD_Error_va(level, srcfile, srcline, position.code, -1, fmt, args);
  const char* const file = parsing ? parsing : "(null)";
  if (flags & quillon::kWithPosition) {
    return ZORAD_Error(level, nullptr, linenum, position.code, -1, position.atLine, linenum, file);
  }
  return ZORAD_Error(level, nullptr, 0, position.code, -1, position.inFile, file);
}
#pragma GCC diagnostic pop

}  // namespace

int ReadFmt(const char* path, LogDriver* target) {
  const quillon::ReportScope throughHooks(nullptr);
  std::FILE* const file = std::fopen(path, "r");
  if (!file) {
    quillon::report(quillon::kCannotOpenSite, {}, "cannot open %s\n", path);
    return 1;
  }
  static std::string present;  // reports quote the path also after the caller's text is gone
  present = path;
  parsing = present.c_str();
  driver = target;
  linenum = 1;
  const quillon::SharedTexts texts;
  eConfig_start(file);
  const int result = eConfig_yyparse();
  std::fclose(file);
  quillon::establishedReading().finish();
  return result != 0 || status != 0;
}

void eConfig_start(std::FILE* file) {
  eConfig_yyin = file;
  quillon::establishedReading().start();
}

int parse_error(int flags, int level, const char* srcfile, int srcline, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int result = report(kErrorPosition, flags, level, srcfile, srcline, fmt, args);
  va_end(args);
  return result;
}

int parse_warning(int flags, int level, const char* srcfile, int srcline, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int result = report(kWarningPosition, flags, level, srcfile, srcline, fmt, args);
  va_end(args);
  return result;
}

int eConfig_yyerror(const char* msg) {
  constexpr quillon::ReportSite site = quillon::kSyntaxErrorSite;
  cefcn(site.flags, site.level, site.module, site.number, "around %s: %s\n", eConfig_yytext, msg);
  return 0;
}

quillon::Reading& quillon::establishedReading() {
  static Reading& reading =
      *new Reading({eConfig_yyin, parsing, linenum, ::offset, ::driver, comments_must_close}, nullptr);
  return reading;
}
