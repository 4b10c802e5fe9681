#include "src/adapters/logfile/common/eConfig.h"

#include <cstdarg>
#include <string>

#include "foundation/characters.h"
#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/diagnostics.h"
#include "src/adapters/logfile/common/eConfig_parser.h"

const char* parsing = nullptr;
int linenum = 0;
int offset = 0;
LogDriver* driver = nullptr;
bool comments_must_close = false;

namespace {

constexpr const char* kModule = "src/adapters/logfile/common/eConfig";

int status = 0;  ///< 1 since a report that fails reads; never 0 again.

/// The block that is being read.
FormatSpec* current_format = nullptr;
/// The PRINTF that is being read or was last. Held here, because a syntax error can keep it out of its format.
quillon::Ref<MsgMapEntry> current_print;

/// How a report about a format file goes on. The texts take the line number and the file name.
struct Position {
  int code;
  const char* atLine;
  const char* inFile;
};

constexpr Position kErrorPosition = {1, "parsing error at line %d of file: %s", "parsing error in file: %s"};
// The position of a warning names no file. Those who watch terminals know it that way.
constexpr Position kWarningPosition = {5, "parsing warning at line %d of file: ", "parsing warning in file: %s"};

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

bool isVar(const char* text) {
  if (*text != '$') return false;
  do ++text;
  while (quillon::isDigit(*text));
  return *text == '\0';
}

}  // namespace

int ReadFmt(const char* path, LogDriver* target) {
  std::FILE* const file = std::fopen(path, "r");
  if (!file) {
    cefcn(0, quillon::kReaderLevel, kModule, 241, "cannot open %s\n", path);
    return 1;
  }
  static std::string present;  // reports quote the path also after the caller's text is gone
  present = path;
  parsing = present.c_str();
  driver = target;
  linenum = 1;
  eConfig_start(file);
  const int result = eConfig_yyparse();
  std::fclose(file);
  current_format = nullptr;
  current_print = {};
  return result != 0 || status != 0;
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
  return cefcn(quillon::kWithPosition | quillon::kFailsRead, quillon::kReaderLevel, kModule, 215, "around %s: %s\n",
               eConfig_yytext, msg);
}

namespace quillon {

FormatSpec* findParent(const char* name) {
  FormatSpec* const parent = driver->getFormatSpec(name);
  if (!parent) {
    char message[150];
    std::snprintf(message, sizeof message, "%.100s is not defined", name);
    eConfig_yyerror(message);
  }
  return parent;
}

void beginFormat(const char* name) {
  current_format = new FormatSpec(name);
  driver->addFormatSpec(current_format);
}

void addComponent(const char* text) { current_format->addFormat(text); }

void endFormatString(FormatSpec* parent) { current_format->addFollows(parent)->addLookahead(); }

MsgMapEntry* makeSlot(const char* name, long kind, const char* value) {
  return MsgMapEntry::create(current_format, name, kind)->addRule(value, current_format);
}

MsgMapEntry* makeWordSlot(const char* name, const char* value) {
  return makeSlot(name, isVar(value) ? varMap : constMap, value);
}

void beginPrint(const char* name) {
  current_print = Ref<MsgMapEntry>(MsgMapEntry::create(current_format, name, printMap));
}

void addPrintPart(const char* text) { current_print->addRule(text, current_format); }

MsgMapEntry* endPrint() { return current_print.get(); }

void addSlot(MsgMapEntry* entry) { current_format->addSlot(entry); }

}  // namespace quillon
