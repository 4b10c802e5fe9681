#include "src/adapters/logfile/common/ConstComponent.h"

#include "src/adapters/logfile/common/SysLogMsg.h"

void ConstComponent::init() {
  if (shared_none) return;
  shared_none = new ConstComponent("");
  share(shared_none);
}

ConstComponent* ConstComponent::create(const char* token) { return new ConstComponent(token); }

int ConstComponent::matches(SysLogMsg& msg, const ConstComponent* /*next*/, qlStrobj& /*value*/) {
  const std::string_view word = msg.word();
  if (word.empty() || !word.starts_with(view())) return 0;
  msg += size();
  return 1;
}

std::size_t ConstComponent::cut(std::string_view word, int n) const {
  const std::string_view text = view();
  std::size_t at = word.find(text);
  if (at == 0 && n >= 0 && word != text) {
    at = word.find(text, 1);
    if (at == std::string_view::npos) at = 0;
  }
  while (at != 0 && at != std::string_view::npos && --n > 0) {
    at = word.find(text, at + 1);
    if (at == std::string_view::npos) at = 0;
  }
  return at == std::string_view::npos ? word.size() : at;
}
