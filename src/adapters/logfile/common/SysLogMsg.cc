#include "src/adapters/logfile/common/SysLogMsg.h"

#include "src/adapters/logfile/common/characters.h"

SysLogMsg::SysLogMsg(const char* text) : qlStrobj(text), length(size()), cursor(start()) {
  findContentEnd();
  beginning_ = reset();
}

int SysLogMsg::reset() {
  cursor = start();
  const int skipped = whitesp();
  cursor += skipped;
  return skipped;
}

void SysLogMsg::setEventFromEventLog() {
  fromEventLog = 1;
  findContentEnd();
}

SysLogMsg& SysLogMsg::operator+=(int n) {
  cursor += n;
  return *this;
}

SysLogMsg& SysLogMsg::operator-=(int n) {
  cursor -= n;
  return *this;
}

int SysLogMsg::whitesp() const {
  const char* p = cursor;
  while (p < textEnd() && isSpace(*p)) ++p;
  return static_cast<int>(p - cursor);
}

std::string_view SysLogMsg::word() const {
  if (cursor < wordStart_ || cursor >= wordEnd_) {
    wordStart_ = wordEnd_ = cursor;
    while (wordEnd_ < textEnd() && (*wordEnd_ == '\n' || !quillon::isWhiteSpace(*wordEnd_))) ++wordEnd_;
  }
  return {cursor, static_cast<std::size_t>(wordEnd_ - cursor)};
}

bool SysLogMsg::isSpace(char c) const { return quillon::isWhiteSpace(c) && (c != '\n' || fromEventLog); }

void SysLogMsg::findContentEnd() {
  contentEnd_ = textEnd();
  while (contentEnd_ > start() && isSpace(contentEnd_[-1])) --contentEnd_;
}
