#include "src/adapters/logfile/common/SysLogMsg.h"

#include <cstring>

SysLogMsg::SysLogMsg(const char* text)
    : qlStrobj(text ? text : ""), length(size()), cursor(start()), textEnd_(cursor + length) {
  findContentEnd();
  beginning_ = reset();
}

int SysLogMsg::reset() {
  forgetFound();
  cursor = start();
  const int skipped = whitesp();
  cursor += skipped;
  return skipped;
}

void SysLogMsg::setEventFromEventLog() {
  fromEventLog = 1;
  findContentEnd();
}

void SysLogMsg::findWord() const {
  wordStart_ = cursor;
  wordEnd_ = cursor + std::strcspn(cursor, " \t\v\f\r");
}

void SysLogMsg::findContentEnd() {
  contentEnd_ = textEnd_;
  while (contentEnd_ > start() && isSpace(contentEnd_[-1])) --contentEnd_;
}
