#include "src/adapters/logfile/common/NewlineComponent.h"

#include "src/adapters/logfile/common/SysLogMsg.h"

void NewlineComponent::init() {
  if (shared_newline) return;
  shared_newline = new NewlineComponent("%n");
  share(shared_newline);
}

NewlineComponent* NewlineComponent::create(const char* /*token*/) { return shared_newline; }

int NewlineComponent::matches(SysLogMsg& msg, const ConstComponent* /*next*/, qlStrobj& /*value*/) {
  if (!msg.word().starts_with('\n')) return 0;
  msg += 1;
  return 1;
}

qlStrobj NewlineComponent::select(const qlStrobj& word, int /*n*/) const {
  return qlStrobj(word.view().substr(0, word.view().find('\n')));
}
