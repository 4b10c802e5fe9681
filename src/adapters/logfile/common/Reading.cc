// Where things stand in a file. The scanner has offsets: how many bytes fill() had given before a token. A reading with
// a sink remembers with each text the offset of its line, so that in "FORMAT A\nuser $2\n" the text "$2" has the mark
// {at 14, line start 9, line 2}, which is line 2, column 6. NUL and \1 reach the scanner as two bytes; for each such
// pair the start of the line is moved on by one, and columns count bytes of the file again. The line that printed
// reports tell is another one: it leaves out newlines within quoted texts, and at a newline it is already the next.
//
// Cost: some twenty instructions for each text; nothing in a reading without a sink.

#include "src/adapters/logfile/common/Reading.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "foundation/characters.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/diagnostics.h"
#include "src/adapters/logfile/common/eConfig.h"
#include "src/adapters/logfile/common/eConfig_parser.h"

// Made by flex.
int eConfig_yylex_init_extra(quillon::Reading* reading, void** scanner);
int eConfig_yylex_destroy(void* scanner);

namespace quillon {
namespace {

constexpr ReportSite kUndefinedParentSite = readerSite(ReportCode::kUndefinedParent);
constexpr ReportSite kTokenTooLongSite = readerSite(ReportCode::kTokenTooLong);
constexpr ReportSite kUnclosedCommentSite = readerSite(ReportCode::kUnclosedComment, kFailsRead, 151);
constexpr ReportSite kCannotReadSite = readerSite(ReportCode::kCannotRead, kFailsRead, 152);

/// What the compiler's scanner says when its file breaks off; programs that always report name the file.
constexpr const char* kInputFailed = "input in flex scanner failed";

bool isVar(const char* text) {
  if (*text != '$') return false;
  do ++text;
  while (isDigit(*text));
  return *text == '\0';
}

bool isEscaped(char c) { return c == '\0' || c == '\1'; }

/// Undoes in a token's text what fill() has done, and ends it at the first NUL byte. Returns its length.
std::size_t unescape(char* text) {
  char* out = text;
  for (const char* in = text; *in; ++in) {
    if (*in == '\1' && *++in == '\2') break;
    *out++ = *in;
  }
  *out = '\0';
  return static_cast<std::size_t>(out - text);
}

/// How many bytes of `text` are half of a pair.
std::size_t pairs(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t at = text.find('\1'); at < text.size(); at = text.find('\1', at + 2)) ++count;
  return count;
}

}  // namespace

Reading::Reading(const State& state, ReportSink* sink) : state_(state), sink_(sink) {
  if (eConfig_yylex_init_extra(this, &scanner_) != 0) throw std::bad_alloc();
}

Reading::~Reading() { eConfig_yylex_destroy(scanner_); }

void Reading::finish() {
  format_ = nullptr;
  print_ = {};
  about_ = nullptr;
}

// ---- What the scanner reads.

std::size_t Reading::fill(char* buffer, std::size_t size) {
  if (pending_) {
    *buffer = std::exchange(pending_, '\0');
    ++filled_;
    return 1;
  }
  const std::size_t in = read(buffer, size < 2 ? 1 : size / 2);
  std::size_t length = in;
  if (std::memchr(buffer, '\0', in) || std::memchr(buffer, '\1', in)) {
    hasPairs_ = true;
    length += static_cast<std::size_t>(std::count_if(buffer, buffer + in, isEscaped));
  }
  if (length > size) {
    pending_ = *buffer ? '\1' : '\2';
    *buffer = '\1';
    ++filled_;
    return 1;
  }
  for (std::size_t to = length, from = in; to > from;) {
    const char c = buffer[--from];
    buffer[--to] = c == '\0' ? '\2' : c;
    if (isEscaped(c)) buffer[--to] = '\1';
  }
  filled_ += length;
  return length;
}

/// At most `size` bytes of the file or the text; 0 at its end.
std::size_t Reading::read(char* buffer, std::size_t size) {
  if (text_.data()) {
    const std::size_t length = text_.copy(buffer, size);
    text_.remove_prefix(length);
    return length;
  }
  std::FILE* const file = state_.in ? state_.in : stdin;
  const std::size_t length = std::fread(buffer, 1, size, file);
  if (length == 0 && std::ferror(file)) {
    const int error = errno;
    std::string reason = formatted("cannot read %s: %s", state_.file, std::strerror(error));
    if (!sink_) cannotGoOn(reporting_always ? reason.c_str() : kInputFailed);
    Report report = makeReport(kCannotReadSite, {}, kInputFailed);
    report.text = std::move(reason);
    take(std::move(report));
  }
  return length;
}

void Reading::cannotGoOn(const char* message) const {
  if (sink_) throw std::bad_alloc();  // all else is reported elsewhere
  std::fprintf(stderr, "%s\n", message);
  std::exit(EXIT_FAILURE);
}

const char* Reading::keep(char* text, std::size_t length, std::size_t at) {
  latest_ = (latest_ + 1) % kTexts;
  if (sink_) mark({text, length}, at);
  if (hasPairs_ && std::memchr(text, '\1', length)) length = unescape(text);
  if (length >= kRoom) {
    error(kTokenTooLongSite, formatted("token too long %.100s", text).c_str());
    return std::strcpy(texts_[latest_], "???");
  }
  // A piece of a format string goes to the model before the scanner reads on.
  if (state_.offset == 2) return text;
  return static_cast<const char*>(std::memcpy(texts_[latest_], text, length + 1));
}

void Reading::markBlank(std::size_t length, std::size_t at) {
  latest_ = (latest_ + 1) % kTexts;
  marks_[latest_] = {at, at + length, lineStart_, lineStart_, realLine(), realLine(), static_cast<int>(length)};
}

/// Remembers where the present token stands, which may have newlines and pairs in it.
void Reading::mark(std::string_view token, std::size_t at) {
  Mark& mark = marks_[latest_];
  mark.at = at;
  mark.end = at + token.size();
  mark.lineStart = lineStart_;
  mark.line = realLine();
  mark.length = static_cast<int>(token.size() - pairs(token));
  const std::size_t newline = token.front() == '"' ? token.rfind('\n') : std::string_view::npos;
  if (newline != std::string_view::npos) {
    quotedLines_ += static_cast<int>(std::count(token.begin(), token.end(), '\n'));
    beginLine(at + newline + 1);
    token.remove_prefix(newline + 1);
  }
  skipPairs(pairs(token));
  mark.endLineStart = lineStart_;
  mark.endLine = realLine();
}

void Reading::keepToken(int kind) { places_->tokens_.push_back({kind, presentPlace()}); }

void Reading::skipPairsOf(std::string_view text) { skipPairs(pairs(text)); }

void Reading::beginComment(std::size_t at) {
  commentLine_ = state_.line;
  comment_ = {at, at + 2, lineStart_, lineStart_, realLine(), realLine(), 2};
  commentText_.clear();
}

void Reading::addToComment(std::string_view text) { commentText_ += text; }

void Reading::addEscapedToComment(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isPair = text[i] == '\1';
    if (isPair) ++i;
    commentText_ += isPair && text[i] == '\2' ? '\0' : text[i];
  }
  skipPairsOf(text);
}

void Reading::endComment(std::size_t at) {
  comment_.end = at;
  comment_.endLineStart = lineStart_;
  comment_.endLine = realLine();
  comment_.length = static_cast<int>(commentText_.size());
  places_->comments_.push_back({placeOf(comment_), commentText_});
}

void Reading::unclosedComment() {
  while (!state_.mustEndComments) pause();  // the rest of the comment may still be on its way
  about_ = &comment_;
  report(kUnclosedCommentSite, {}, "the block comment that opens at line %d is never closed", commentLine_);
  about_ = nullptr;
}

// ---- What is reported, and where.

Place Reading::placeOf(const Mark& mark) {
  return {.line = mark.line,
          .column = static_cast<int>(mark.at - mark.lineStart) + 1,
          .length = mark.length,
          .endLine = mark.endLine,
          .endColumn = static_cast<int>(mark.end - mark.endLineStart) + 1};
}

Place Reading::presentPlace() const {
  const std::size_t at = tokenOffset();
  if (at == marks_[latest_].at) return placeOf(marks_[latest_]);
  const std::size_t length = std::strlen(tokenText());
  if (*tokenText() != '\n')
    return placeOf({at, at + length, lineStart_, lineStart_, realLine(), realLine(), static_cast<int>(length)});
  // The newline is counted, and it belongs to the line that it ends.
  return placeOf({at, at + 1, previousLineStart_, lineStart_, realLine() - 1, realLine(), 1});
}

void Reading::take(Report report) {
  report.file = state_.file ? state_.file : "";
  if (!report.place && state_.file) report.place = about_ ? placeOf(*about_) : presentPlace();
  const char* const file = state_.file ? state_.file : "(null)";
  if (report.site->printer != ReportSite::Printer::kErrorHook) {
    // has no position
  } else if (report.site->flags & kWithPosition) {
    report.printed += formatted("parsing error at line %d of file: %s\n", state_.line, file);
  } else {
    report.printed += formatted("parsing error in file: %s\n", file);
  }
  if (report.severity == Severity::kError) failed_ = true;
  sink_->take(std::move(report));
}

void Reading::error(const ReportSite& site, const char* message) {
  if (!sink_) {
    eConfig_yytext = const_cast<char*>(tokenText());
    eConfig_yyerror(message);
    return;
  }
  Report report = makeReport(site, {}, formatted("around %s: %s\n", tokenText(), message));
  report.text = message;
  take(std::move(report));
}

// ---- What the productions do.

FormatSpec* Reading::findParent(const char* name) {
  if (sink_) parent_ = markOf(name);
  if (places_) parentName_ = name;
  FormatSpec* const parent = state_.driver->getFormatSpec(name);
  if (!parent) error(kUndefinedParentSite, formatted("%.100s is not defined", name).c_str());
  return parent;
}

void Reading::beginFormat(const char* name) {
  format_ = new FormatSpec(name);
  state_.driver->addFormatSpec(format_);
  if (sink_) formats_.push_back(format_);
  if (!places_) return;
  block_ = &places_->begin(format_);
  block_->name = placeOf(markOf(name));
  block_->parentName = std::exchange(parentName_, "");
  if (!block_->parentName.empty()) block_->parent = placeOf(parent_);
}

void Reading::addComponent(const char* text) {
  format_->addFormat(text);
  if (places_) block_->components.push_back(placeOf(marks_[latest_]));
}

void Reading::endFormatString(FormatSpec* parent) {
  about_ = &parent_;
  format_->addFollows(parent)->addLookahead();
  about_ = nullptr;
}

MsgMapEntry* Reading::makeSlot(const char* name, long kind, const char* value) {
  about_ = &marks_[latest_];
  MsgMapEntry* const entry = MsgMapEntry::create(format_, name, kind)->addRule(value, format_);
  about_ = nullptr;
  if (places_) block_->slots.push_back({entry, name, placeOf(markOf(name)), placeOf(marks_[latest_]), {}});
  return entry;
}

MsgMapEntry* Reading::makeWordSlot(const char* name, const char* value) {
  return makeSlot(name, isVar(value) ? varMap : constMap, value);
}

void Reading::beginPrint(const char* name) {
  print_ = Ref<MsgMapEntry>(MsgMapEntry::create(format_, name, printMap));
  if (places_) printPlaces_ = {print_.get(), name, placeOf(markOf(name)), {}, {}};
}

void Reading::addPrintPart(const char* text) {
  print_->addRule(text, format_);
  if (!places_) return;
  const Place place = placeOf(marks_[latest_]);
  printPlaces_.value ? printPlaces_.arguments.push_back(place) : void(printPlaces_.value = place);
}

MsgMapEntry* Reading::endPrint() {
  if (places_) block_->slots.push_back(std::move(printPlaces_));
  return print_.get();
}

void Reading::addSlot(MsgMapEntry* entry) {
  if (places_) {
    if (const MsgMapEntry* const replaced = format_->find(entry->getName().view())) {
      if (const auto line = block_->byEntry_.extract(replaced)) block_->slots[line.mapped()].entry = nullptr;
    }
    block_->byEntry_[entry] = block_->slots.size() - 1;
  }
  format_->addSlot(entry);
}

void Reading::endFormat() {
  state_.offset = 0;
  if (places_) block_->end = placeOf(marks_[latest_]);
}

}  // namespace quillon
