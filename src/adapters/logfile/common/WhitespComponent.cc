#include "src/adapters/logfile/common/WhitespComponent.h"

#include "src/adapters/logfile/common/SysLogMsg.h"

namespace {
WhitespComponent* shared_blank = nullptr;
}

void WhitespComponent::init() {
  if (shared_blank) return;
  shared_blank = new WhitespComponent(" ");
  share(shared_blank);
}

WhitespComponent* WhitespComponent::create(const char* /*token*/) { return shared_blank; }

int WhitespComponent::matches(SysLogMsg& msg, const ConstComponent* /*next*/, qlStrobj& /*value*/) {
  const int run = msg.whitesp();
  msg += run;
  return run > 0;
}
