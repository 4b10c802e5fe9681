// What a format is made of. The automaton below splits a whole format string, as an editor has it; a format file is
// split by the scanner, which knows lines besides. Both give the same pieces: "%5s: a  b" is "%5s", ":", " ", "a", " ",
// "b". Each character is looked at once.

#include "src/adapters/logfile/common/FormatSpec.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/characters.h"
#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/ConstComponent.h"
#include "src/adapters/logfile/common/FormatComponent.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/Report.h"
#include "src/adapters/logfile/common/utf8_text.h"

namespace {

constexpr const char* kModule = "src/adapters/logfile/common/FormatSpec";
constexpr quillon::ReportSite kTooManyVariablesSite =
    quillon::errorSite(quillon::ReportCode::kTooManyVariables, quillon::kModelLevel, kModule, 242);

/// Of what is odd about a format but does not make it unreadable.
constexpr quillon::ReportSite warningSite(quillon::ReportCode code, int number) {
  return {code,  quillon::Severity::kWarning, quillon::ReportSite::Printer::kReporter, 0, quillon::kModelLevel, kModule,
          number};
}

constexpr quillon::ReportSite kDroppedSite = warningSite(quillon::ReportCode::kInheritedMapDropped, 175);
constexpr quillon::ReportSite kNotMappedSite = warningSite(quillon::ReportCode::kVariableNotMapped, 216);
constexpr quillon::ReportSite kMappedTwiceSite = warningSite(quillon::ReportCode::kVariableMappedTwice, 225);

/// States of the automaton that splits a format string into tokens.
enum TokenState { kStart, kText, kPercent, kWidth, kLetter, kModifier, kBlanks, kComplete };

TokenState afterPercent(char c) {
  if (c == 's' || c == 't' || c == 'n') return kLetter;
  if (quillon::isWhiteSpace(c)) return kComplete;
  return quillon::isDigit(c) ? kWidth : kText;
}

TokenState afterWidth(char c) {
  if (c == 's' || c == 't') return kLetter;
  if (quillon::isWhiteSpace(c)) return kComplete;
  return quillon::isDigit(c) ? kWidth : kText;
}

/// The state after `c`; kComplete when `c` does not belong to the token any more.
TokenState next(TokenState state, char c) {
  const bool space = quillon::isWhiteSpace(c);
  switch (state) {
    case kStart:
      return c == '%' ? kPercent : space ? kBlanks : kText;
    case kText:
      return c == '%' || space ? kComplete : kText;
    case kPercent:
      return afterPercent(c);
    case kWidth:
      return afterWidth(c);
    case kLetter:
      return c == '*' || c == '+' ? kModifier : kComplete;
    case kBlanks:
      return space ? kBlanks : kComplete;
    case kModifier:
    case kComplete:
      break;
  }
  return kComplete;
}

/// What a token becomes: a run of white space its first character, other text itself. A token that is longer than 512
/// characters writes over its own beginning, 512 characters at a time; existing format strings are read that way.
qlStrobj tokenText(std::string_view token) {
  constexpr std::size_t kBuffer = 512;
  token.remove_prefix(token.size() / kBuffer * kBuffer);
  if (!token.empty() && quillon::isWhiteSpace(token[0])) token = token.substr(0, 1);
  return qlStrobj(token);
}

}  // namespace

FormatSpec::FormatSpec(const char* text) : MapSpec(text) {}

/// A format may be the last to hold its parent, that one its own parent, and so on: the chain is taken apart link by
/// link, because it can be far longer than the stack is deep.
FormatSpec::~FormatSpec() {
  ldelete();
  FormatSpec* parent = std::exchange(follows, nullptr);
  while (parent && parent->refcnt() == 1) {
    FormatSpec* const grandparent = std::exchange(parent->follows, nullptr);
    quillon::release(parent);
    parent = grandparent;
  }
  quillon::release(parent);
}

void FormatSpec::setFmtStr(const char* fmt) {
  ldelete();
  const std::string_view text(fmt);
  std::size_t start = 0;
  TokenState state = kStart;
  for (std::size_t i = 0; i < text.size(); ++i) {
    state = next(state, text[i]);
    if (state != kComplete) continue;
    addFormat(tokenText(text.substr(start, i - start)));
    start = i;
    state = next(kStart, text[i]);
  }
  addFormat(tokenText(text.substr(start)));
  addLookahead();
}

qlStrobj FormatSpec::getFmtStr() const {
  qlStrobj text("");
  for (const FormatComponent* component : components) text << component->fmtRep();
  return text;
}

void FormatSpec::addFormat(const char* text) {
  FormatComponent* const component = FormatComponent::create(text);
  quillon::retain(component);
  components(component);
  if (component->variable()) {
    if (numVars >= kMaxVariables) {
      quillon::report(kTooManyVariablesSite, {.format = this}, "too many %% variables in format");
    }
    ++numVars;
  }
  if (std::strcmp(text, "%n") == 0) ++numLines;
}

void FormatSpec::addLookahead() {
  int i = -1;
  int fields = 0;
  for (components[0]; components.has(); components++) {
    ++i;
    if (!components()->variable()) continue;
    // Fields beyond the limit, which have no value, are not bounded: each may look to the end of the format, and a line
    // of nothing but fields should take no more than 64 such looks.
    if (++fields > kMaxVariables) break;
    ConstComponent* const bound = components()->lookahead(components, i);
    components[i];
    quillon::retain(bound);
    lookahead(bound);
  }
}

void FormatSpec::ldelete() {
  quillon::releaseAll(components);
  quillon::releaseAll(lookahead);
  numVars = 0;
}

FormatSpec* FormatSpec::addFollows(FormatSpec* parent) {
  dropInherited();
  quillon::retain(parent);  // first: it may be the old one
  quillon::release(follows);
  follows = parent;
  if (!parent) return this;
  for (MsgMapEntry* e : parent->getMaps()) {
    if (find(e->getName().view())) continue;
    if (e->position() > numVars) {
      quillon::report(kDroppedSite, {.format = this, .entry = e}, "in %s dropping inherited map `%s $%d'",
                      getName().view().data(), e->getName().view().data(), e->position());
    } else {
      appendSlot(e);
    }
  }
  return this;
}

FormatSpec* FormatSpec::verifySlot() {
  std::vector<int> uses(static_cast<std::size_t>(numVars) + 1);
  for (const MsgMapEntry* e : getMaps()) {
    const int n = e->position();
    if (n >= 1 && n <= numVars) ++uses[static_cast<std::size_t>(n)];
  }
  const char* const format = getName().view().data();
  for (int n = 1; n <= numVars; ++n) {
    const int count = uses[static_cast<std::size_t>(n)];
    if (count == 0) {
      quillon::report(kNotMappedSite, {.format = this, .variable = n}, "%s does not map $%d in format string", format,
                      n);
    }
    if (count > 1) {
      quillon::report(kMappedTwiceSite, {.format = this, .variable = n}, "in %s $%d is used by more than one map",
                      format, n);
    }
  }
  return this;
}

void FormatSpec::UTF8fmt() {
  if (quillon::isUtf8(quillon::platformCodeset())) return;
  for (FormatComponent* component : components) {
    // Fields and blanks are the language's, in UTF-8 from the beginning, and most are shared: to convert them for each
    // format would be to convert them again and again.
    if (component->kind() == quillon::ComponentKind::kConstant) component->UTF8Component();
  }
}

const qlStrobj& FormatSpec::bvalue(VarMapEntry* e) {
  static const qlStrobj none = qlStrobj::permanent("???");
  const int n = e->position();
  return n >= 1 && n <= std::min(numVars, kMaxVariables) ? value(n) : none;
}

const qlStrobj& FormatSpec::value(int n) const {
  static const qlStrobj empty = qlStrobj::permanent("");
  return values && n <= kMaxVariables ? (*values)[static_cast<std::size_t>(n - 1)] : empty;
}

void FormatSpec::dbgdump() {
  std::printf("%s numVars %d\n", getName().view().data(), numVars);
  for (const FormatComponent* component : components) component->dbgdump();
  std::fputs("\n", stdout);
  dumpEntries();
}

void FormatSpec::genFmt(FILE* stream, LogDriver* driver, int /*index*/) {
  const bool followsNamed = follows && driver->getFormatSpec(follows->getName().getString());
  const bool parentMissing = follows && !followsNamed;
  std::fprintf(stream, "FORMAT %s", getName().view().data());
  if (followsNamed) std::fprintf(stream, " FOLLOWS %s", follows->getName().view().data());
  std::fputs("\n", stream);
  for (const FormatComponent* component : components) std::fputs(component->fmtRep().view().data(), stream);
  std::fputs("\n", stream);
  for (MsgMapEntry* e : getMaps()) {
    if (e->getOwner() == this || parentMissing) std::fprintf(stream, "%s\n", e->fmtMap(this).view().data());
  }
  std::fputs("END\n\n", stream);
}
